#include "host/printable_text.h"

#include <algorithm>

namespace kivclaim::host {

namespace {

// What one character of UTF-8 is made of: its length in bytes (0: the bytes are none) and its code point.
struct Character {
    std::size_t length;
    unsigned int codePoint;
};

bool isContinuation(unsigned char byte)
{
    return (byte & 0xC0U) == 0x80U;
}

// The length that the first byte announces; 0 for a byte that cannot begin a character.
std::size_t announcedLength(unsigned char first)
{
    if (first < 0x80) {
        return 1;
    }
    if (first >= 0xC2 && first < 0xE0) {
        return 2;
    }
    if (first >= 0xE0 && first < 0xF0) {
        return 3;
    }
    return first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

Character decode(std::string_view text)
{
    static constexpr unsigned int firstByteMask[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    static constexpr unsigned int smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const std::size_t length = announcedLength(static_cast<unsigned char>(text[0]));
    if (length == 0 || length > text.size()) {
        return {0, 0};
    }
    unsigned int codePoint = static_cast<unsigned char>(text[0]) & firstByteMask[length];
    for (std::size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (!isContinuation(byte)) {
            return {0, 0};
        }
        codePoint = (codePoint << 6U) | (byte & 0x3FU);
    }
    const bool isSurrogate = codePoint >= 0xD800 && codePoint < 0xE000;
    if (codePoint < smallest[length] || codePoint > 0x10FFFF || isSurrogate) {
        return {0, 0};
    }
    return {length, codePoint};
}

bool isControl(unsigned int codePoint)
{
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
}

void appendEscaped(std::string& result, std::string_view bytes)
{
    static constexpr char hexDigits[] = "0123456789abcdef";
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        result += "\\x";
        result += hexDigits[byte >> 4U];
        result += hexDigits[byte & 0x0FU];
    }
}

// How many printable ASCII characters `text` begins with.
std::size_t plainLength(std::string_view text)
{
    std::size_t length = 0;
    while (length < text.size() && text[length] >= 0x20 && text[length] < 0x7F) {
        ++length;
    }
    return length;
}

}  // namespace

std::string printableText(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t plain = plainLength(text);
        result.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) {
            break;
        }
        const Character character = decode(text);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(character.length, 1));
        if (character.length == 0 || isControl(character.codePoint)) {
            appendEscaped(result, bytes);
        } else {
            result.append(bytes);
        }
        text.remove_prefix(bytes.size());
    }
    return result;
}

}  // namespace kivclaim::host
