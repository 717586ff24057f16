#include "tools/recording/redaction.h"

#include "machine/text.h"
#include "tools/recording/message_words.h"
#include "tools/recording/stand_ins.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

using kivclaim::machine::beginsWith;
using kivclaim::machine::CopiedFile;
using kivclaim::machine::CopiedFiles;
using kivclaim::machine::takeUntil;
using kivclaim::machine::trimmed;
using Type = kivclaim::machine::CopiedFile::Type;

namespace kivclaim::tools {

namespace {

// How the value of one of udev's properties is shown.
enum class Value { asItIs, name, identifier, mapUuid, path };

struct Property {
    std::string_view key;
    Value value;
};

// Others are left out.
constexpr Property properties[] = {
    {"DEVNAME", Value::path},
    {"DEVTYPE", Value::asItIs},
    {"DM_NAME", Value::name},
    {"DM_UUID", Value::mapUuid},
    {"ID_BUS", Value::asItIs},
    {"ID_FS_BLOCKSIZE", Value::asItIs},
    {"ID_FS_LABEL", Value::name},
    {"ID_FS_LABEL_ENC", Value::name},
    {"ID_FS_LASTBLOCK", Value::asItIs},
    {"ID_FS_SIZE", Value::asItIs},
    {"ID_FS_TYPE", Value::asItIs},
    {"ID_FS_USAGE", Value::asItIs},
    {"ID_FS_UUID", Value::identifier},
    {"ID_FS_UUID_ENC", Value::identifier},
    {"ID_FS_VERSION", Value::asItIs},
    {"ID_MODEL", Value::asItIs},
    {"ID_MODEL_ENC", Value::asItIs},
    {"ID_PART_ENTRY_DISK", Value::asItIs},
    {"ID_PART_ENTRY_FLAGS", Value::asItIs},
    {"ID_PART_ENTRY_NAME", Value::name},
    {"ID_PART_ENTRY_NUMBER", Value::asItIs},
    {"ID_PART_ENTRY_OFFSET", Value::asItIs},
    {"ID_PART_ENTRY_SCHEME", Value::asItIs},
    {"ID_PART_ENTRY_SIZE", Value::asItIs},
    {"ID_PART_ENTRY_TYPE", Value::asItIs},
    {"ID_PART_ENTRY_UUID", Value::identifier},
    {"ID_PART_TABLE_TYPE", Value::asItIs},
    {"ID_PART_TABLE_UUID", Value::identifier},
    {"ID_REVISION", Value::asItIs},
    {"ID_SCSI_SERIAL", Value::identifier},
    {"ID_SERIAL", Value::identifier},
    {"ID_SERIAL_SHORT", Value::identifier},
    {"ID_TYPE", Value::asItIs},
    {"ID_VENDOR", Value::asItIs},
    {"ID_WWN", Value::identifier},
    {"ID_WWN_WITH_EXTENSION", Value::identifier},
    {"SCSI_IDENT_SERIAL", Value::identifier},
};

// Directories on every machine, whose names tell nothing of this one.
constexpr std::string_view commonDirectories[] = {"boot", "cdrom", "data", "dev",   "efi", "home", "lib", "media",
                                                  "mnt",  "opt",   "proc", "root",  "run", "srv",  "sys", "tmp",
                                                  "usr",  "var",   "log",  "cache", "etc", "local"};

std::string_view lastName(std::string_view path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

// Where a link leads to, below the root.
std::string destinationOf(const std::string& link, std::string_view target)
{
    std::string path = directoryOf(link);
    while (!target.empty()) {
        const std::string_view name = takeUntil(target, '/');
        if (name == "..") {
            path = directoryOf(path);
        } else {
            path.append(path.empty() ? "" : "/").append(name);
        }
    }
    return path;
}

class Redactor {
public:
    explicit Redactor(const Recording& recording) : original(recording) { findKernelNames(); }

    Recording take()
    {
        takeAll();
        standIns.assign();
        return takeAll();
    }

private:
    // Kernel names and numbers of devices.
    void findKernelNames()
    {
        for (const auto& [path, file] : original.files) {
            for (const std::string_view directory : {"sys/class/block/", "sys/block/"}) {
                if (beginsWith(path, directory)) {
                    std::string_view rest = std::string_view(path).substr(directory.size());
                    nodes.insert("dev/" + machine::withSlashes(takeUntil(rest, '/')));
                }
            }
            if (file.type == Type::file && lastName(path) == "dev" && beginsWith(path, "sys/")) {
                numbers.emplace(trimmed(file.content));
            }
        }
    }

    // Identifiers come first: names may be made of them.
    Recording takeAll()
    {
        Recording recording = original;
        recording.files.clear();
        recording.isRedacted = true;
        if (recording.system.count("nodename") != 0) {
            recording.system["nodename"] = "redacted";
        }
        for (const bool isFirst : {true, false}) {
            for (const auto& [path, file] : original.files) {
                if (isIdentifying(path) == isFirst) {
                    add(recording.files, path, file);
                }
            }
        }
        return recording;
    }

    static bool isIdentifying(const std::string& path)
    {
        const std::string_view name = lastName(path);
        return name == "wwid" || name == "serial" || beginsWith(path, "run/udev/data/");
    }

    void add(CopiedFiles& files, const std::string& path, const CopiedFile& file)
    {
        if (!isKept(path)) {
            return;
        }
        const std::string place = placeOf(path);
        machine::addDirectoriesAbove(files, place);
        if (file.type == Type::link) {
            const std::string destination = destinationOf(path, file.content);
            files[place] = {file.type, machine::relativeLink(directoryOf(place), placeOf(destination))};
        } else {
            files[place] = {file.type, file.type == Type::file ? contentOf(path, file.content) : std::string()};
        }
    }

    // Of the commands, only the one that the answers depend on.
    static bool isKept(const std::string& path)
    {
        constexpr std::string_view listing = "kivclaim/commands/sbin/lvdisplay";
        return !beginsWith(path, "kivclaim/") || path == machineNodes || beginsWith(path, listing) ||
               beginsWith(listing, path + "/");
    }

    std::string placeOf(const std::string& path)
    {
        return beginsWith(path, "dev/") && nodes.count(path) == 0 ? "dev/" + placeInDev(path.substr(4)) : path;
    }

    // Of a name below dev/ that is not the kernel's.
    std::string placeInDev(const std::string& path)
    {
        if (nodes.lower_bound("dev/" + path + "/") != nodes.end() &&
            beginsWith(*nodes.lower_bound("dev/" + path + "/"), "dev/" + path + "/")) {
            return path;  // cciss
        }
        const std::size_t slash = path.find('/');
        const std::string first = path.substr(0, slash);
        const std::string rest = slash == std::string::npos ? "" : path.substr(slash + 1);
        if (first == "disk") {
            return rest.empty() ? path : "disk/" + placeInDisk(rest);
        }
        if (first == "mapper" || first == "md" || first == "block" || first == "char") {
            return rest.empty() || first == "block" || first == "char" || rest == "control"
                       ? path
                       : first + "/" + standIns.name(rest);
        }
        return rest.empty() ? standIns.name(first) : standIns.name(first) + "/" + standIns.name(rest);
    }

    // "by-id/scsi-36001"
    std::string placeInDisk(const std::string& path)
    {
        const std::size_t slash = path.find('/');
        const std::string kind = path.substr(0, slash);
        if (slash == std::string::npos || kind == "by-diskseq") {
            return path;
        }
        const std::string name = path.substr(slash + 1);
        if (kind == "by-path") {
            return kind + "/" + (tellsNames(name) ? networkPath(name) : name);
        }
        if (kind == "by-label" || kind == "by-partlabel") {
            return kind + "/" + standIns.name(name);
        }
        return kind + "/" + (kind == "by-id" ? identity(name) : standIns.identifier(name));
    }

    // Paths over a network hold addresses and names of hosts.
    static bool tellsNames(std::string_view path)
    {
        constexpr std::string_view networks[] = {"ip-", "iscsi", "fc-", "nvme-", "sas-", "0x"};
        return std::any_of(std::begin(networks), std::end(networks),
                           [&](std::string_view network) { return path.find(network) != std::string_view::npos; });
    }

    // Numbers of an address would stay in a name.
    std::string networkPath(const std::string& name)
    {
        const std::size_t lun = std::min(name.rfind("-lun-"), name.size());
        return standIns.identifier(name.substr(0, lun)) + name.substr(lun);
    }

    std::string identity(const std::string& name)
    {
        if (beginsWith(name, "dm-name-")) {
            return "dm-name-" + standIns.name(name.substr(8));
        }
        if (beginsWith(name, "dm-uuid-")) {
            return "dm-uuid-" + mapUuid(name.substr(8));
        }
        for (const std::string_view prefix :
             {"lvm-pv-uuid-", "md-name-", "md-uuid-", "ata-", "nvme-", "scsi-", "usb-", "virtio-", "wwn-", "mmc-"}) {
            if (beginsWith(name, prefix)) {
                return std::string(prefix) + standIns.identifier(name.substr(prefix.size()));
            }
        }
        return standIns.identifier(name);
    }

    // What says whose a mapping is, and which layer of it, stays.
    std::string mapUuid(const std::string& uuid)
    {
        constexpr std::size_t volume = 64;
        const std::size_t dash = uuid.find('-');
        if (dash == std::string::npos) {
            return standIns.identifier(uuid);
        }
        const std::string owner = uuid.substr(0, dash + 1);
        const std::string rest = uuid.substr(dash + 1);
        if (beginsWith(owner, "part")) {
            return owner + mapUuid(rest);
        }
        if (owner == "LVM-") {
            return owner + standIns.identifier(rest.substr(0, volume)) +
                   (rest.size() > volume ? rest.substr(volume) : std::string());
        }
        const std::size_t second = rest.find('-');
        if (owner == "CRYPT-" && second != std::string::npos) {
            const std::size_t third = rest.find('-', second + 1);
            const std::string identifier = rest.substr(second + 1, third - second - 1);
            return owner + rest.substr(0, second + 1) + standIns.identifier(identifier) +
                   (third == std::string::npos ? "" : "-" + standIns.name(rest.substr(third + 1)));
        }
        return owner + standIns.identifier(rest);
    }

    std::string contentOf(const std::string& path, const std::string& content)
    {
        const std::string_view name = lastName(path);
        if (beginsWith(path, "run/udev/data/") || beginsWith(path, "dev/")) {
            return propertiesIn(content);
        }
        if (beginsWith(path, "kivclaim/")) {
            return path == machineNodes ? nodesIn(content)
                   : name == "output"   ? listingIn(content)
                   : name == "errors"   ? messagesIn(content)
                                        : content;
        }
        if (path == "proc/self/mountinfo") {
            return mountsIn(content);
        }
        if (path == "proc/swaps") {
            return swapsIn(content);
        }
        if (name == "name" && path.size() > 8 && path.compare(path.size() - 8, 8, "/dm/name") == 0) {
            return onLine(content, [&](const std::string& text) { return standIns.name(text); });
        }
        if (name == "uuid") {
            return onLine(content, [&](const std::string& text) { return mapUuid(text); });
        }
        if (name == "serial" || name == "wwid") {
            return onLine(content, [&](const std::string& text) { return sysfsWwid(text); });
        }
        if (name == "symbolic_name") {
            return content.find(" over ") != std::string::npos ? "adapter over network\n" : "adapter\n";
        }
        return content;
    }

    template <class Change>
    static std::string onLine(const std::string& content, Change change)
    {
        const std::string_view text = trimmed(content);
        return text.empty() ? content : change(std::string(text)) + "\n";
    }

    // multipath writes "t10.ATA  DISK  1" as "1ATA_DISK_1".
    std::string sysfsWwid(const std::string& text)
    {
        return beginsWith(text, "t10.") ? "t10." + standIns.identifier(machine::multipathWwid(text).substr(1))
                                        : standIns.identifier(text);
    }

    std::string pathIn(std::string_view path)
    {
        return beginsWith(path, "/dev/") ? "/" + placeOf(std::string(path.substr(1))) : std::string(path);
    }

    std::string propertiesIn(std::string_view content)
    {
        std::string result;
        while (!content.empty()) {
            const std::string_view line = takeUntil(content, '\n');
            if (beginsWith(line, "S:")) {
                result += "S:" + placeInDev(std::string(line.substr(2))) + "\n";
            } else if (beginsWith(line, "L:") || beginsWith(line, "V:")) {
                result.append(line).append("\n");
            } else {
                result += propertyIn(line);
            }
        }
        return result;
    }

    std::string propertyIn(std::string_view line)
    {
        const std::string_view before = beginsWith(line, "E:") ? "E:" : "";
        std::string_view value = line.substr(before.size());
        const std::string_view key = takeUntil(value, '=');
        const auto* const property = std::find_if(std::begin(properties), std::end(properties),
                                                  [&](const Property& one) { return one.key == key; });
        if (property == std::end(properties)) {
            return "";
        }
        const std::string text(value);
        std::string shown = property->value == Value::name         ? standIns.name(text)
                            : property->value == Value::identifier ? standIns.identifier(text)
                            : property->value == Value::mapUuid    ? mapUuid(text)
                            : property->value == Value::path       ? pathIn(text)
                                                                   : text;
        return std::string(before).append(key).append("=") + shown + "\n";
    }

    // Block devices, and what is beside them.
    std::string nodesIn(std::string_view content)
    {
        std::string result;
        while (!content.empty()) {
            std::string_view path = takeUntil(content, '\n');
            const std::string readable(takeUntil(path, ' '));
            const std::string number(takeUntil(path, ' '));
            if (number != "-" || beginsWith(path, "/dev/mapper/")) {
                result.append(readable).append(" ").append(number).append(" ").append(pathIn(path)).append("\n");
            }
        }
        return result;
    }

    // Only those of block devices; of each what the model reads.
    std::string mountsIn(std::string_view content)
    {
        std::string result;
        while (!content.empty()) {
            std::string_view line = takeUntil(content, '\n');
            std::array<std::string, 5> fields;
            for (std::string& field : fields) {
                field = takeUntil(line, ' ');
            }
            const std::size_t separator = line.find(" - ");
            line.remove_prefix(separator == std::string_view::npos ? line.size() : separator + 3);
            const std::string type(takeUntil(line, ' '));
            const std::string source(takeUntil(line, ' '));
            if (numbers.count(fields[2]) != 0 || beginsWith(source, "/dev/")) {
                result += fields[0] + " " + fields[1] + " " + fields[2] + " / " + mountPoint(fields[4]) + " rw - " +
                          type + " " + (beginsWith(source, "/dev/") ? pathIn(source) : "none") + " rw\n";
            }
        }
        return result;
    }

    std::string mountPoint(std::string_view path)
    {
        std::string result;
        bool isFirst = true;
        while (!path.empty()) {
            const std::string_view name = takeUntil(path, '/');
            const bool isCommon = std::find(std::begin(commonDirectories), std::end(commonDirectories), name) !=
                                  std::end(commonDirectories);
            result.append(isFirst ? "" : "/").append(isCommon ? std::string(name) : standIns.name(name));
            isFirst = false;
        }
        return result.empty() ? "/" : result;
    }

    std::string swapsIn(std::string_view content)
    {
        std::string result(takeUntil(content, '\n'));
        result += "\n";
        while (!content.empty()) {
            const std::string_view line = takeUntil(content, '\n');
            const std::size_t end = std::min(line.find_first_of(" \t"), line.size());
            if (beginsWith(line, "/dev/")) {
                result += pathIn(line.substr(0, end)) + std::string(line.substr(end)) + "\n";
            }
        }
        return result;
    }

    // What lvdisplay printed. The library reads its lines by their labels and their words by the blanks around them.
    std::string listingIn(std::string_view content)
    {
        std::string result;
        while (!content.empty()) {
            const bool isWhole = content.find('\n') != std::string_view::npos;
            result += listingLine(std::string(takeUntil(content, '\n'))) + (isWhole ? "\n" : "");
        }
        return result;
    }

    std::string listingLine(const std::string& line)
    {
        for (const std::string_view label :
             {"LV Name", "VG Name", "LV Path", "LV UUID", "LV Creation host, time", "LV Pool name",
              "LV Thin origin name", "LV Pool metadata", "LV Pool data", "LV external origin name",
              "LV Cache pool name", "LV Cache origin name", "LV VDO Pool name", "LV VDO Pool data"}) {
            const std::size_t place = line.find(label);
            if (place == std::string::npos) {
                continue;
            }
            const std::size_t begin = line.find_first_not_of(" \t", place + label.size());
            if (begin == std::string::npos) {
                return line;
            }
            const std::size_t end = std::min(line.find_first_of(" \t,", begin), line.size());
            const std::string value = line.substr(begin, end - begin);
            return line.substr(0, begin) +
                   (beginsWith(value, "/dev/") ? pathIn(value)
                    : label == "LV UUID"       ? standIns.identifier(value)
                                               : standIns.name(value)) +
                   line.substr(end);
        }
        return standIns.freeText(line);
    }

    // What lvdisplay wrote to standard error: any message, about devices and groups that nothing else may name.
    std::string messagesIn(std::string_view content)
    {
        constexpr std::string_view between = " \t\n\"'`,;()[]<>=";
        std::string result;
        while (!content.empty()) {
            const std::size_t end = std::min(content.find_first_of(between), content.size());
            result += wordOfMessage(content.substr(0, end));
            result += content.substr(end, 1);
            content.remove_prefix(std::min(end + 1, content.size()));
        }
        return result;
    }

    // A word, and the point or colon at its end.
    std::string wordOfMessage(std::string_view text)
    {
        const std::size_t end = text.find_last_not_of(".:!") + 1;
        const std::string word(text.substr(0, end));
        const bool isKept = isMessageWord(word) || nodes.count("dev/" + word) != 0 ||
                            word.find_first_not_of("0123456789.%-:/#") == std::string::npos;
        // A name may be a word like any other.
        const bool isName = standIns.isName(word) && nodes.count("dev/" + word) == 0;
        const std::string shown = isKept && !isName           ? word
                                  : beginsWith(word, "/dev/") ? pathIn(word)
                                  : beginsWith(word, "/")     ? mountPoint(word)
                                                              : standIns.unknown(word);
        return shown + std::string(text.substr(end));
    }

    static constexpr std::string_view machineNodes = "kivclaim/nodes";

    const Recording& original;
    StandIns standIns;
    std::set<std::string> nodes;  // the kernel's, below the root
    std::set<std::string, std::less<>> numbers;
};

}  // namespace

Recording redacted(const Recording& recording)
{
    return Redactor(recording).take();
}

}  // namespace kivclaim::tools
