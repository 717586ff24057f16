#include "tools/report/markup.h"

#include "host/printable_text.h"

#include <sha2.h>

#include <array>
#include <cctype>
#include <cstdint>

using kivclaim::host::printableText;

namespace kivclaim::tools {

namespace {

constexpr char ellipsis[] = "\u2026";

std::string base64(const std::array<std::uint8_t, SHA256_DIGEST_LENGTH>& bytes)
{
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const auto byte = [&](std::size_t at) { return at < bytes.size() ? bytes[at] : 0U; };
        const std::uint32_t three = byte(i) << 16U | byte(i + 1) << 8U | byte(i + 2);
        text += digits[three >> 18U];
        text += digits[three >> 12U & 63U];
        text += i + 1 < bytes.size() ? digits[three >> 6U & 63U] : '=';
        text += i + 2 < bytes.size() ? digits[three & 63U] : '=';
    }
    return text;
}

// The lengths of the characters of a text in UTF-8.
std::vector<std::size_t> characterLengths(const std::string& text)
{
    std::vector<std::size_t> lengths;
    for (const char byte : text) {
        const bool continues = (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
        if (continues && !lengths.empty()) {
            ++lengths.back();
        } else {
            lengths.push_back(1);
        }
    }
    return lengths;
}

std::size_t widthOf(std::size_t characterLength)
{
    return characterLength > 1 ? 2 : 1;
}

// How many bytes at the beginning of a text, whose characters are given in that order, take at most `places`.
template <class Iterator>
std::size_t bytesWithin(std::size_t places, Iterator begin, Iterator end)
{
    std::size_t bytes = 0;
    std::size_t used = 0;
    for (Iterator length = begin; length != end && used + widthOf(*length) <= places; ++length) {
        used += widthOf(*length);
        bytes += *length;
    }
    return bytes;
}

}  // namespace

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char character : printableText(text)) {
        switch (character) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += character;
        }
    }
    return result;
}

std::string escapedLines(std::string_view text)
{
    std::string result;
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        result += escaped(text.substr(0, end)) + "\n";
        text.remove_prefix(end + 1);
    }
    return result + escaped(text);
}

std::string shortened(const std::string& text, std::size_t places)
{
    std::string shown = printableText(text);
    const std::vector<std::size_t> lengths = characterLengths(shown);
    std::size_t width = 0;
    for (const std::size_t length : lengths) {
        width += widthOf(length);
    }
    if (width <= places) {
        return shown;
    }
    const std::size_t front = bytesWithin((places - 1) / 2, lengths.begin(), lengths.end());
    const std::size_t back = bytesWithin(places / 2, lengths.rbegin(), lengths.rend());
    return shown.substr(0, front) + ellipsis + shown.substr(shown.size() - back);
}

std::string className(std::string_view text)
{
    std::string name;
    for (const char character : text) {
        name += std::isalnum(static_cast<unsigned char>(character)) != 0 ? character : '-';
    }
    return name;
}

std::string policyHash(const std::string& content)
{
    SHA2_CTX context;
    SHA256Init(&context);
    SHA256Update(&context, reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    std::array<std::uint8_t, SHA256_DIGEST_LENGTH> digest{};
    SHA256Final(digest.data(), &context);
    return "'sha256-" + base64(digest) + "'";
}

std::string element(const std::string& name, const std::string& content)
{
    return "<" + name + ">" + content + "</" + name.substr(0, name.find(' ')) + ">";
}

std::string tableRow(const std::string& attributes, const std::vector<std::string>& cells)
{
    std::string row = "<tr" + (attributes.empty() ? "" : " " + attributes) + ">";
    for (std::size_t i = 0; i < cells.size(); ++i) {
        row += i == 0 ? element("th scope=\"row\"", cells[i]) : element("td", cells[i]);
    }
    return row + "</tr>\n";
}

std::string tableHead(const std::string& caption, const std::vector<std::string>& columns)
{
    std::string head = element("caption", caption) + "\n<thead><tr>";
    for (const std::string& column : columns) {
        head += element("th scope=\"col\"", column);
    }
    return head + "</tr></thead>\n";
}

}  // namespace kivclaim::tools
