// The recording host's own string tools, written to be simple. A test program without this file runs the same scenarios
// with the bundled ones.
#include "framework/cfistringtool.h"
#include "testkit/recording_host.h"

#include <algorithm>
#include <cctype>

using ztfi_pdk_4_4::CFiStringTool;

// The symbol that the kit's link options require, so that the linker takes this file out of the archive. Some tests of
// this project leave it out, to use the bundled string tools.
extern "C" const int kivclaim_testkit_string_tools;
const int kivclaim_testkit_string_tools = 1;

namespace {

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char byte) { return std::tolower(byte); });
    return text;
}

}  // namespace

std::vector<std::string> CFiStringTool::tokenize(const std::string& text, const std::string& separators)
{
    std::vector<std::string> pieces;
    std::string piece;
    for (const char character : text + separators.substr(0, 1)) {
        if (separators.find(character) == std::string::npos) {
            piece += character;
        } else if (!piece.empty()) {
            pieces.push_back(piece);
            piece.clear();
        }
    }
    return pieces;
}

std::string CFiStringTool::trim(const std::string& text, const std::string& characters)
{
    std::string rest = text;
    while (!rest.empty() && characters.find(rest.back()) != std::string::npos) {
        rest.pop_back();
    }
    while (!rest.empty() && characters.find(rest.front()) != std::string::npos) {
        rest.erase(0, 1);
    }
    return rest;
}

std::size_t CFiStringTool::find(const std::vector<std::string>& lines, const std::string& text, unsigned long& index,
                                bool ignoreCase)
{
    const kivclaim::testkit::Host* const host = kivclaim::testkit::Host::current();
    if (host != nullptr && host->onSearch) {
        host->onSearch();
    }
    for (unsigned long line = index; line < lines.size(); ++line) {
        if (host != nullptr && !host->falseHit.empty() && lines[line] == host->falseHit) {
            index = line;
            return 0;
        }
        const std::size_t position = ignoreCase ? lowered(lines[line]).find(lowered(text)) : lines[line].find(text);
        if (position != std::string::npos) {
            index = host != nullptr ? host->indexAfterHit.value_or(line) : line;
            return position;
        }
    }
    if (host != nullptr && host->indexAfterMiss) {
        index = *host->indexAfterMiss;
    }
    return std::string::npos;
}

ACE_String_Base<char> CFiStringTool::str2tstr(const std::string& text)
{
    return {text.data(), text.size()};
}

std::string CFiStringTool::tstr2str(const ACE_String_Base<char>& text)
{
    return {text.c_str(), text.length()};
}
