// Decodes untrusted UTF-8, and escapes bytes that are not UTF-8. Private to the bundled host.
#ifndef KIVCLAIM_HOST_UTF8_H
#define KIVCLAIM_HOST_UTF8_H

#include <cstddef>
#include <string_view>

namespace kivclaim::host_internal {

// One character of UTF-8: its length in bytes (0: the bytes are not UTF-8) and its code point.
struct Utf8Character {
    std::size_t length;
    unsigned int codePoint;
};

inline bool isUtf8Continuation(unsigned char byte)
{
    return (byte & 0xC0U) == 0x80U;
}

// The length that the first byte implies; 0 for a byte that cannot begin a character.
inline std::size_t announcedUtf8Length(unsigned char first)
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

// The first character of `text`, which must not be empty.
inline Utf8Character decodeUtf8(std::string_view text)
{
    constexpr unsigned int firstByteMask[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    constexpr unsigned int smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const std::size_t length = announcedUtf8Length(static_cast<unsigned char>(text[0]));
    if (length == 0 || length > text.size()) {
        return {0, 0};
    }
    unsigned int codePoint = static_cast<unsigned char>(text[0]) & firstByteMask[length];
    for (std::size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (!isUtf8Continuation(byte)) {
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

// Appends a byte that is not text, or must not be shown as text, as \xHH to a narrow or wide string.
template <class String>
void appendEscapedByte(String& result, char character)
{
    constexpr char hexDigits[] = "0123456789abcdef";
    const auto byte = static_cast<unsigned char>(character);
    for (const char part : {'\\', 'x', hexDigits[byte >> 4U], hexDigits[byte & 0x0FU]}) {
        result += static_cast<typename String::value_type>(part);
    }
}

}  // namespace kivclaim::host_internal

#endif
