#include "tools/recording/stand_ins.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>

namespace kivclaim::tools {

namespace {

// Without vowels and without 'p': a stand-in is no word, and none ends like a partition's name.
constexpr std::string_view letters = "bcdfghjk";
constexpr std::size_t mostKeptDigits = 3;
constexpr std::size_t shortestIdentifier = 8;
constexpr std::size_t shortestHexadecimal = 12;

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

bool isAlphanumeric(char character)
{
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || static_cast<unsigned char>(character) >= 0x80;
}

bool endsWith(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::size_t digitsAtEnd(std::string_view text)
{
    std::size_t count = 0;
    while (count < text.size() && isDigit(text[text.size() - count - 1])) {
        ++count;
    }
    return count;
}

// Long, of hexadecimal digits: a WWID that is used as a name.
bool looksLikeIdentifier(std::string_view text)
{
    return text.size() >= shortestHexadecimal && std::any_of(text.begin(), text.end(), isDigit) &&
           std::all_of(text.begin(), text.end(), [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
}

// "-part3" of "36001-part3"
std::string_view partitionSuffix(std::string_view text)
{
    constexpr std::string_view part = "-part";
    const std::size_t digits = digitsAtEnd(text);
    return digits != 0 && endsWith(text.substr(0, text.size() - digits), part)
               ? text.substr(text.size() - digits - part.size())
               : std::string_view();
}

// `number` as letters, `length` of them or more.
std::string inLetters(std::size_t number, std::size_t length)
{
    std::string text;
    while (number != 0 || text.size() < length) {
        text.insert(text.begin(), letters[number % letters.size()]);
        number /= letters.size();
    }
    return text;
}

// `number` in the places of letters and digits of `shape`, but for the last one, and zeros before it.
std::string inShape(std::size_t number, std::string_view shape)
{
    std::string text(shape);
    bool isLast = true;
    for (std::size_t i = text.size(); i-- > 0;) {
        if (!isAlphanumeric(text[i])) {
            continue;
        }
        if (isLast) {
            text[i] = isDigit(text[i]) ? text[i] : 'e';
            isLast = false;
            continue;
        }
        text[i] = static_cast<char>('0' + number % 10);
        number /= 10;
    }
    return number == 0 ? text : inLetters(number, 1) + text;
}

}  // namespace

void StandIns::assign()
{
    isAssigned = true;
    std::set<std::string> used;
    // In the order of the originals, so that most lists keep theirs.
    std::map<std::size_t, std::size_t> counts;
    for (auto& [original, standIn] : stems) {
        do {
            standIn = inLetters(counts[original.size()]++, original.size());
        } while (stems.count(standIn) != 0 || !used.insert(standIn).second);
    }
    std::size_t count = 0;
    for (auto& [original, standIn] : identifiers) {
        do {
            standIn = inShape(++count, original);
        } while (identifiers.count(standIn) != 0 || !used.insert(standIn).second);
    }
}

std::string StandIns::stem(const std::string& text)
{
    if (text.empty() || text == "part") {
        return text;
    }
    if (!isAssigned) {
        stems.emplace(text, text);
    }
    const auto found = stems.find(text);
    return found != stems.end() ? found->second : text;
}

std::string StandIns::wholeIdentifier(const std::string& text)
{
    if (!isAssigned) {
        identifiers.emplace(text, text);
    }
    const auto found = identifiers.find(text);
    return found != identifiers.end() ? found->second : text;
}

std::string StandIns::word(std::string_view text)
{
    if (isKnownIdentifier(text) || looksLikeIdentifier(text)) {
        return identifier(text);
    }
    if (!isAssigned) {
        words.emplace(text);
    }
    const std::size_t all = digitsAtEnd(text);
    const std::size_t kept = all <= mostKeptDigits ? all : 1;
    const std::string_view digits = text.substr(text.size() - kept);
    std::string_view rest = text.substr(0, text.size() - kept);
    std::string_view between;
    if (kept != 0) {
        if (endsWith(rest, "part")) {
            between = rest.substr(rest.size() - 4);
        } else if (endsWith(rest, "p") && words.count(std::string(rest.substr(0, rest.size() - 1))) != 0) {
            between = rest.substr(rest.size() - 1);
        }
        rest.remove_suffix(between.size());
    }
    // "disk7p1" is partition 1 of "disk7".
    const std::string whole = !between.empty() && digitsAtEnd(rest) != 0 ? word(rest) : stem(std::string(rest));
    return whole + std::string(between) + std::string(digits);
}

std::string StandIns::name(std::string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        // As udev writes other characters.
        if (text.substr(i, 2) == "\\x" && i + 4 <= text.size()) {
            result += text.substr(i, 4);
            i += 4;
            continue;
        }
        std::size_t end = i;
        while (end < text.size() && isAlphanumeric(text[end])) {
            ++end;
        }
        if (end == i) {
            result += text[i++];
            continue;
        }
        result += word(text.substr(i, end - i));
        i = end;
    }
    return result;
}

std::string StandIns::identifier(std::string_view text)
{
    const std::string_view suffix = partitionSuffix(text);
    if (!suffix.empty()) {
        return identifier(text.substr(0, text.size() - suffix.size())) + std::string(suffix);
    }
    for (const std::string_view before : {"naa.", "eui.", "uuid.", "nvme.", "0x"}) {
        if (text.substr(0, before.size()) == before) {
            return std::string(before) + identifier(text.substr(before.size()));
        }
    }
    // The kind of a WWID, as multipath and udev write it.
    if (text.size() > 1 && text[0] >= '1' && text[0] <= '3' &&
        (isKnownIdentifier(text.substr(1)) ||
         ((text.size() == 17 || text.size() == 33) && looksLikeIdentifier(text)))) {
        return std::string(1, text[0]) + wholeIdentifier(std::string(text.substr(1)));
    }
    const bool isOne = text.size() >= shortestIdentifier && std::any_of(text.begin(), text.end(), isDigit);
    return isOne || isKnownIdentifier(text) ? wholeIdentifier(std::string(text)) : name(text);
}

std::string StandIns::unknown(std::string_view text)
{
    // LVM's UUIDs and those of file systems, with dashes and without.
    constexpr std::size_t shortestUuid = 32;
    const bool isUuid = text.size() >= shortestUuid && std::any_of(text.begin(), text.end(), isDigit) &&
                        std::all_of(text.begin(), text.end(), [](char c) { return isAlphanumeric(c) || c == '-'; });
    return isUuid || isKnownIdentifier(text) ? wholeIdentifier(std::string(text)) : name(text);
}

std::string StandIns::freeText(std::string_view text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t end = i;
        while (end < text.size() && (isAlphanumeric(text[end]) || text[end] == '-')) {
            ++end;
        }
        const std::string_view part = text.substr(i, end - i);
        if (part.empty()) {
            result += text[i++];
            continue;
        }
        const bool isIdentifier = isKnownIdentifier(part) || looksLikeIdentifier(part);
        std::string replaced;
        for (std::size_t j = 0; !isIdentifier && j < part.size();) {
            const std::size_t dash = std::min(part.find('-', j), part.size());
            const std::string piece(part.substr(j, dash - j));
            replaced += words.count(piece) != 0 ? word(piece) : piece;
            replaced += dash < part.size() ? "-" : "";
            j = dash + 1;
        }
        result += isIdentifier ? identifier(part) : replaced;
        i = end;
    }
    return result;
}

}  // namespace kivclaim::tools
