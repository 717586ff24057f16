#include "machine/text.h"

#include <algorithm>
#include <charconv>

namespace kivclaim::machine {

namespace {

constexpr std::string_view blanks(" \t\n\v\f\r\0", 7);
constexpr std::uint64_t mostMajor = 4095;
constexpr std::uint64_t mostMinor = (1U << 20) - 1;

bool isDigit(char character)
{
    return character >= '0' && character <= '9';
}

// `name` is `driver` and a letter.
bool isOfDriver(std::string_view name, std::string_view driver)
{
    return beginsWith(name, driver) && name.size() > driver.size() && name[driver.size()] >= 'a' &&
           name[driver.size()] <= 'z';
}

bool isNumbered(std::string_view name, std::string_view driver)
{
    return beginsWith(name, driver) && name.size() > driver.size() && isDigit(name[driver.size()]);
}

// The value of `digits` digits of `base` after the backslash at `position`, or -1.
int escapeAt(std::string_view text, std::size_t position, std::size_t digits, int base)
{
    unsigned int value = 0;
    const char* const begin = text.data() + position;
    const char* const end = position + digits <= text.size() ? begin + digits : begin;
    const auto [stop, error] = std::from_chars(begin, end, value, base);
    return error == std::errc() && stop == end && end != begin && value <= UINT8_MAX ? static_cast<int>(value) : -1;
}

// `mark` follows the backslash of an escape.
std::string withoutEscapes(std::string_view text, std::string_view mark, std::size_t digits, int base)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int value = text.substr(i, mark.size()) == mark ? escapeAt(text, i + mark.size(), digits, base) : -1;
        plain += value >= 0 ? static_cast<char>(value) : text[i];
        i += value >= 0 ? mark.size() + digits - 1 : 0;
    }
    return plain;
}

// How many bytes follow the first one of a character, and the least and greatest second byte; -1 for no first byte.
struct Utf8Character {
    int following;
    unsigned char least;
    unsigned char greatest;
};

Utf8Character utf8Character(unsigned char first)
{
    if (first < 0x80) {
        return {0, 0x80, 0xBF};
    }
    if (first < 0xC2 || first > 0xF4) {
        return {-1, 0x80, 0xBF};
    }
    if (first < 0xE0) {
        return {1, 0x80, 0xBF};
    }
    if (first < 0xF0) {
        return {2, static_cast<unsigned char>(first == 0xE0 ? 0xA0 : 0x80),
                static_cast<unsigned char>(first == 0xED ? 0x9F : 0xBF)};
    }
    return {3, static_cast<unsigned char>(first == 0xF0 ? 0x90 : 0x80),
            static_cast<unsigned char>(first == 0xF4 ? 0x8F : 0xBF)};
}

}  // namespace

bool beginsWith(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

std::string withSlashes(std::string_view sysfsName)
{
    std::string name(sysfsName);
    std::replace(name.begin(), name.end(), '!', '/');
    return name;
}

std::string_view trimmed(std::string_view text)
{
    const std::size_t begin = text.find_first_not_of(blanks);
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

bool isUtf8(std::string_view text)
{
    for (std::size_t i = 0; i < text.size();) {
        const Utf8Character character = utf8Character(static_cast<unsigned char>(text[i++]));
        unsigned char least = character.least;
        unsigned char greatest = character.greatest;
        for (int left = character.following; left != 0; --left, ++i) {
            if (left < 0 || i == text.size() || static_cast<unsigned char>(text[i]) < least ||
                static_cast<unsigned char>(text[i]) > greatest) {
                return false;
            }
            least = 0x80;
            greatest = 0xBF;
        }
    }
    return true;
}

std::optional<std::uint64_t> numberIn(std::string_view text, std::uint64_t most)
{
    std::uint64_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || stop != text.data() + text.size() || number > most) {
        return std::nullopt;
    }
    return number;
}

std::optional<DeviceNumber> deviceNumberIn(std::string_view text)
{
    const std::string_view majorText = takeUntil(text, ':');
    const std::optional<std::uint64_t> major = numberIn(majorText, mostMajor);
    const std::optional<std::uint64_t> minor = numberIn(text, mostMinor);
    if (!major || !minor) {
        return std::nullopt;
    }
    return DeviceNumber{static_cast<std::uint32_t>(*major), static_cast<std::uint32_t>(*minor)};
}

bool isScsiAddress(std::string_view text)
{
    return std::count(text.begin(), text.end(), ':') == 3 && isDigit(text.front()) && isDigit(text.back()) &&
           text.find("::") == std::string_view::npos &&
           std::all_of(text.begin(), text.end(), [](char c) { return c == ':' || isDigit(c); });
}

std::string_view takeUntil(std::string_view& rest, char separator)
{
    const std::size_t end = rest.find(separator);
    const std::string_view taken = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    return taken;
}

std::string withoutOctalEscapes(std::string_view text)
{
    return withoutEscapes(text, "\\", 3, 8);
}

std::string withoutHexEscapes(std::string_view text)
{
    return withoutEscapes(text, "\\x", 2, 16);
}

std::string multipathWwid(std::string_view sysfsWwid)
{
    if (beginsWith(sysfsWwid, "naa.")) {
        return "3" + std::string(sysfsWwid.substr(4));
    }
    if (!beginsWith(sysfsWwid, "t10.")) {
        return std::string(sysfsWwid);
    }
    std::string wwid = "1";
    for (const char character : sysfsWwid.substr(4)) {
        const char written = character == ' ' ? '_' : character;
        if (written != '_' || character != ' ' || wwid.back() != '_') {
            wwid += written;
        }
    }
    return wwid;
}

std::string wwnOf(std::string_view sysfsWwid)
{
    if (beginsWith(sysfsWwid, "naa.")) {
        return "0x" + std::string(sysfsWwid.substr(4));
    }
    return beginsWith(sysfsWwid, "t10.") ? std::string() : std::string(sysfsWwid);
}

const char* scsiTypeName(std::uint64_t type)
{
    static constexpr const char* names[] = {"disk",  "tape",    "printer", "processor", "worm",
                                            "rom",   "scanner", "mo-disk", "changer",   "comm",
                                            nullptr, nullptr,   "raid",    "enclosure", "rbc"};
    constexpr std::uint64_t objectStore = 0x11;
    constexpr std::uint64_t noUnit = 0x7F;
    if (type < std::size(names)) {
        return names[type];
    }
    return type == objectStore ? "osd" : type == noUnit ? "no-lun" : nullptr;
}

MapUuid::MapUuid(std::string_view uuid) : origin(uuid)
{
    const std::size_t dash = uuid.find('-');
    if (beginsWith(uuid, "part") && dash != std::string_view::npos) {
        partition = static_cast<unsigned int>(numberIn(uuid.substr(4, dash - 4), INT32_MAX).value_or(0));
        origin = partition != 0 ? uuid.substr(dash + 1) : uuid;
    }
}

Kind kindOfMapping(const MapUuid& uuid)
{
    // "LVM-", the uuids of group and volume; hidden layers have a dash and the layer's name after them.
    constexpr std::size_t volumeUuid = 4 + 32 + 32;
    if (beginsWith(uuid.origin, "mpath-")) {
        return uuid.partition != 0 ? Kind::multipathPartition : Kind::multipathMap;
    }
    if (uuid.partition != 0) {
        return Kind::otherMapping;
    }
    if (beginsWith(uuid.origin, "LVM-")) {
        return uuid.origin.find('-', volumeUuid) != std::string_view::npos ? Kind::hiddenVolume : Kind::volume;
    }
    return beginsWith(uuid.origin, "CRYPT-") ? Kind::crypt : Kind::otherMapping;
}

Kind kindOfName(std::string_view kernelName)
{
    if (isOfDriver(kernelName, "sd")) {
        return Kind::scsiDisk;
    }
    if (isOfDriver(kernelName, "emcpower")) {
        return Kind::powerPath;
    }
    if (isNumbered(kernelName, "nvme")) {
        return Kind::nvme;
    }
    if (isNumbered(kernelName, "sr")) {
        return Kind::rom;
    }
    if (isNumbered(kernelName, "loop")) {
        return Kind::loop;
    }
    return isNumbered(kernelName, "md") || beginsWith(kernelName, "md_") ? Kind::raid : Kind::disk;
}

unsigned int partitionInName(std::string_view disk, std::string_view name)
{
    if (disk.empty() || !beginsWith(name, disk)) {
        return 0;
    }
    std::string_view digits = name.substr(disk.size());
    if (isDigit(disk.back())) {
        if (!beginsWith(digits, "p")) {
            return 0;
        }
        digits.remove_prefix(1);
    }
    return static_cast<unsigned int>(numberIn(digits, INT32_MAX).value_or(0));
}

bool isMapping(Kind kind)
{
    return kind >= Kind::multipathMap;
}

}  // namespace kivclaim::machine
