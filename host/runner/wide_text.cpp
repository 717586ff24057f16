#include "host/runner/wide_text.h"

#include "host/utf8.h"

namespace kivclaim::host_internal {

std::wstring wideText(std::string_view text)
{
    static_assert(sizeof(wchar_t) >= 4, "one wide character holds every code point");
    std::wstring result;
    result.reserve(text.size());
    while (!text.empty()) {
        const Utf8Character character = decodeUtf8(text);
        if (character.length == 0) {
            appendEscapedByte(result, text.front());
            text.remove_prefix(1);
        } else {
            result += static_cast<wchar_t>(character.codePoint);
            text.remove_prefix(character.length);
        }
    }
    return result;
}

}  // namespace kivclaim::host_internal
