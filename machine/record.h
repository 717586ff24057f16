// What udev's database, or a file of a recorded root, says about a device. Private to machine/.
#ifndef KIVCLAIM_MACHINE_RECORD_H
#define KIVCLAIM_MACHINE_RECORD_H

#include "machine/file_reader.h"
#include "machine/tree.h"

#include <string_view>

namespace kivclaim::machine {

// The values of the properties of the same names, as they are written; valid as long as the text they were read from.
struct Record {
    std::string_view fsType;
    std::string_view fsLabelEncoded;
    std::string_view fsLabel;
    std::string_view fsUuidEncoded;
    std::string_view fsUuid;
    std::string_view modelEncoded;
    std::string_view model;
    std::string_view serialOfScsi;  // SCSI_IDENT_SERIAL
    std::string_view scsiSerial;    // ID_SCSI_SERIAL
    std::string_view shortSerial;
    std::string_view serial;
    std::string_view wwnWithExtension;
    std::string_view wwn;
};

// Lines such as "E:ID_FS_TYPE=ext4" of udev's database, and "ID_FS_TYPE=ext4" of a recorded root.
Record recordIn(std::string_view text);

// The text about a device: of a recorded root the file that has the node's name, if there is one, else the entry in
// udev's database. Valid until the next use of `files`.
std::string_view recordText(const Tree& tree, FileReader& files, Device& device);

}  // namespace kivclaim::machine

#endif
