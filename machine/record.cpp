#include "machine/record.h"

#include "machine/text.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <utility>

namespace kivclaim::machine {

namespace {

constexpr std::pair<std::string_view, std::string_view Record::*> properties[] = {
    {"ID_FS_TYPE", &Record::fsType},
    {"ID_FS_LABEL_ENC", &Record::fsLabelEncoded},
    {"ID_FS_LABEL", &Record::fsLabel},
    {"ID_FS_UUID_ENC", &Record::fsUuidEncoded},
    {"ID_FS_UUID", &Record::fsUuid},
    // In the files of a recorded root lsblk reads the plain one only.
    {"E:ID_MODEL_ENC", &Record::modelEncoded},
    {"ID_MODEL", &Record::model},
    {"SCSI_IDENT_SERIAL", &Record::serialOfScsi},
    {"ID_SCSI_SERIAL", &Record::scsiSerial},
    {"ID_SERIAL_SHORT", &Record::shortSerial},
    {"ID_SERIAL", &Record::serial},
    {"ID_WWN_WITH_EXTENSION", &Record::wwnWithExtension},
    {"ID_WWN", &Record::wwn},
};

// Only a file: a copied node must not be opened, it is a device of this machine.
Descriptor regularFile(const Tree& tree, const std::string& name)
{
    const Descriptor place = tree.open(Top::dev, name, O_PATH);
    struct stat status {};
    if (!place.isOpen() || ::fstat(place.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return Descriptor();
    }
    return tree.open(Top::dev, name, O_RDONLY);
}

Descriptor entryInDatabase(const Tree& tree, DeviceNumber number)
{
    return tree.open(Top::udevData, "b" + std::to_string(number.major) + ":" + std::to_string(number.minor), O_RDONLY);
}

}  // namespace

Record recordIn(std::string_view text)
{
    Record record;
    while (!text.empty()) {
        std::string_view line = takeUntil(text, '\n');
        const bool isOfDatabase = beginsWith(line, "E:");
        const std::string_view name = line.substr(isOfDatabase ? 2 : 0);
        if (!beginsWith(name, "ID_") && !beginsWith(name, "SCSI_")) {
            continue;
        }
        const std::string_view key = takeUntil(line, '=');
        for (const auto& [property, member] : properties) {
            if (property == key || (isOfDatabase && property == key.substr(2))) {
                record.*member = trimmed(line);
            }
        }
    }
    return record;
}

std::string_view recordText(const Tree& tree, FileReader& files, Device& device)
{
    constexpr std::size_t dev = std::string_view("/dev/").size();
    Descriptor file = tree.isLive() ? Descriptor() : regularFile(tree, std::string(device.node.substr(dev)));
    if (!file.isOpen() && device.number) {
        file = entryInDatabase(tree, *device.number);
    }
    return file.isOpen() ? files.content(file.get(), longestFile, device.marks) : std::string_view();
}

}  // namespace kivclaim::machine
