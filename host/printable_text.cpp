#include "host/printable_text.h"

#include "host/utf8.h"

#include <algorithm>

namespace kivclaim::host {

namespace {

bool isControl(unsigned int codePoint)
{
    return codePoint < 0x20 || (codePoint >= 0x7F && codePoint < 0xA0);
}

// Invisible characters that change the direction of the text after them.
bool isDirectional(unsigned int codePoint)
{
    return codePoint == 0x200E || codePoint == 0x200F || (codePoint >= 0x202A && codePoint <= 0x202E) ||
           (codePoint >= 0x2066 && codePoint <= 0x2069);
}

// The number of printable ASCII characters at the beginning of `text`.
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
        const host_internal::Utf8Character character = host_internal::decodeUtf8(text);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(character.length, 1));
        if (character.length == 0 || isControl(character.codePoint) || isDirectional(character.codePoint)) {
            for (const char byte : bytes) {
                host_internal::appendEscapedByte(result, byte);
            }
        } else {
            result.append(bytes);
        }
        text.remove_prefix(bytes.size());
    }
    return result;
}

}  // namespace kivclaim::host
