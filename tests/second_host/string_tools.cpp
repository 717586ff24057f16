// The second host's string tools.
#include "framework/cfistringtool.h"

#include <strings.h>

#include <algorithm>

using ztfi_pdk_4_4::CFiStringTool;

std::vector<std::string> CFiStringTool::tokenize(const std::string& text, const std::string& separators)
{
    std::vector<std::string> pieces;
    std::size_t begin = text.find_first_not_of(separators);
    while (begin != std::string::npos) {
        const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
        pieces.push_back(text.substr(begin, end - begin));
        begin = text.find_first_not_of(separators, end);
    }
    return pieces;
}

std::string CFiStringTool::trim(const std::string& text, const std::string& characters)
{
    const std::size_t begin = text.find_first_not_of(characters);
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(characters) - begin + 1);
}

std::size_t CFiStringTool::find(const std::vector<std::string>& lines, const std::string& text, unsigned long& index,
                                bool ignoreCase)
{
    const auto same = [&](char one, char other) {
        return one == other || (ignoreCase && strncasecmp(&one, &other, 1) == 0);
    };
    for (std::size_t i = index; i < lines.size(); ++i) {
        const auto hit = std::search(lines[i].begin(), lines[i].end(), text.begin(), text.end(), same);
        if (hit != lines[i].end() || text.empty()) {
            index = i;
            return static_cast<std::size_t>(hit - lines[i].begin());
        }
    }
    return std::string::npos;
}

ACE_String_Base<char> CFiStringTool::str2tstr(const std::string& text)
{
    ACE_String_Base<char> converted;
    converted.set(text.c_str(), text.size(), true);
    return converted;
}

std::string CFiStringTool::tstr2str(const ACE_String_Base<char>& text)
{
    std::string converted;
    converted.assign(text.c_str(), text.length());
    return converted;
}
