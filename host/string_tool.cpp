#include "framework/cfistringtool.h"

#include <array>
#include <new>

namespace ztfi_pdk_4_4 {

namespace {

// A set of bytes. A look-up takes one step, whatever the size of the set.
class ByteSet {
public:
    explicit ByteSet(const std::string& bytes)
    {
        for (const char byte : bytes) {
            members[static_cast<unsigned char>(byte)] = true;
        }
    }

    bool contains(char byte) const { return members[static_cast<unsigned char>(byte)]; }

private:
    std::array<bool, 256> members{};
};

// Branch-free and locale-independent, so it vectorises.
char foldedAscii(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    const bool isUpperCase = static_cast<unsigned char>(byte - 'A') < 26;
    return static_cast<char>(byte | (isUpperCase ? 0x20 : 0));
}

// Overwrites `result`, so that one buffer can be used for all lines.
void foldInto(std::string& result, const std::string& text)
{
    result.resize(text.size());
    const char* const source = text.data();
    char* const target = result.data();
    for (std::size_t i = 0, size = text.size(); i < size; ++i) {
        target[i] = foldedAscii(source[i]);
    }
}

std::size_t findExactly(const std::vector<std::string>& lines, const std::string& text, unsigned long& index)
{
    for (std::size_t line = index; line < lines.size(); ++line) {
        const std::size_t position = lines[line].find(text);
        if (position != std::string::npos) {
            index = line;
            return position;
        }
    }
    return std::string::npos;
}

std::size_t findInAnyCase(const std::vector<std::string>& lines, const std::string& text, unsigned long& index)
{
    std::string foldedText;
    foldInto(foldedText, text);
    std::string foldedLine;
    for (std::size_t line = index; line < lines.size(); ++line) {
        if (lines[line].size() < foldedText.size()) {
            continue;
        }
        foldInto(foldedLine, lines[line]);
        const std::size_t position = foldedLine.find(foldedText);
        if (position != std::string::npos) {
            index = line;
            return position;
        }
    }
    return std::string::npos;
}

}  // namespace

std::vector<std::string> CFiStringTool::tokenize(const std::string& text, const std::string& separators)
{
    const ByteSet separatorSet(separators);
    std::vector<std::string> pieces;
    std::size_t position = 0;
    while (position < text.size()) {
        if (separatorSet.contains(text[position])) {
            ++position;
            continue;
        }
        const std::size_t start = position;
        while (position < text.size() && !separatorSet.contains(text[position])) {
            ++position;
        }
        pieces.emplace_back(text, start, position - start);
    }
    return pieces;
}

std::string CFiStringTool::trim(const std::string& text, const std::string& characters)
{
    const ByteSet unwanted(characters);
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && unwanted.contains(text[begin])) {
        ++begin;
    }
    while (end > begin && unwanted.contains(text[end - 1])) {
        --end;
    }
    return text.substr(begin, end - begin);
}

std::size_t CFiStringTool::find(const std::vector<std::string>& lines, const std::string& text, unsigned long& index,
                                bool ignoreCase)
{
    return ignoreCase ? findInAnyCase(lines, text, index) : findExactly(lines, text, index);
}

ACE_String_Base<char> CFiStringTool::str2tstr(const std::string& text)
{
    ACE_String_Base<char> result(text.data(), text.size());
    if (result.length() != text.size()) {
        // The framework's string type does not report that memory ran out: it is just empty.
        throw std::bad_alloc();
    }
    return result;
}

std::string CFiStringTool::tstr2str(const ACE_String_Base<char>& text)
{
    return {text.c_str(), text.length()};
}

}  // namespace ztfi_pdk_4_4
