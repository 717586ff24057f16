// Reads the texts of sysfs, udev and procfs: numbers, blanks, escapes. Private to machine/.
#ifndef KIVCLAIM_MACHINE_TEXT_H
#define KIVCLAIM_MACHINE_TEXT_H

#include "machine/machine.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kivclaim::machine {

bool beginsWith(std::string_view text, std::string_view beginning);
// The kernel's name of a device for sysfs's, which has an exclamation mark for each slash.
std::string withSlashes(std::string_view sysfsName);

std::string_view trimmed(std::string_view text);
bool isUtf8(std::string_view text);

// A decimal number up to `most` and nothing else.
std::optional<std::uint64_t> numberIn(std::string_view text, std::uint64_t most);

// "8:0", within what a kernel gives.
std::optional<DeviceNumber> deviceNumberIn(std::string_view text);

// "0:0:0:0"
bool isScsiAddress(std::string_view text);

// Removes and returns the text up to `separator`, or all, from the beginning of `rest`.
std::string_view takeUntil(std::string_view& rest, char separator);

// The blank of "a\040b" as procfs writes it, and of "a\x20b" as udev does.
std::string withoutOctalEscapes(std::string_view text);
std::string withoutHexEscapes(std::string_view text);

// "naa.6001405…" of sysfs as multipath writes it: 36001405…
std::string multipathWwid(std::string_view sysfsWwid);
// The same as lsblk writes it, 0x6001405…; empty for those that lsblk does not show.
std::string wwnOf(std::string_view sysfsWwid);

// "disk", "rom" for the number of a SCSI device type; null for one that has no name.
const char* scsiTypeName(std::uint64_t type);

// The parts of a device-mapper uuid such as part3-mpath-36001…: kpartx puts the number of a partition in front.
// Threads: any. Ownership: borrows the uuid. Failure: none; a uuid of another form is its own origin.
struct MapUuid {
    explicit MapUuid(std::string_view uuid);

    std::string_view origin;
    unsigned int partition = 0;
};

Kind kindOfMapping(const MapUuid& uuid);
Kind kindOfName(std::string_view kernelName);

// The partition number in a partition's name, by how the kernel names partitions of `disk`; 0 for another name.
unsigned int partitionInName(std::string_view disk, std::string_view name);

}  // namespace kivclaim::machine

#endif
