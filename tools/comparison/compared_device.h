// Two states of a machine, device by device.
#ifndef KIVCLAIM_TOOLS_COMPARISON_COMPARED_DEVICE_H
#define KIVCLAIM_TOOLS_COMPARISON_COMPARED_DEVICE_H

#include "tools/session.h"

#include <map>
#include <string>
#include <vector>

namespace kivclaim::tools {

// What is compared of a device; texts that are not known are empty.
struct ComparedDevice {
    std::string path;
    std::string kernelName;
    std::string size;  // in bytes
    std::string state;
    std::string map;    // that the disk, or the disk of the partition, is a path of
    std::string claim;  // "device-mapper 16"
};

// By the key that identifies a device even after it got another name: the uuid of a mapping, WWID and address of a SCSI
// disk, the number of a partition on such a one; of all others the kernel name.
using ComparedDevices = std::map<std::string, ComparedDevice>;

// Asks about all devices with a node. Throws CommandError.
ComparedDevices comparedDevices(const SessionOptions& options);

struct DeviceChange {
    std::string change;  // came, went or changed
    std::string device;  // the path, the new one if there is one
    std::string fact;    // what changed: name, size, state, map or claim; empty for came and went
    std::string before;
    std::string after;
};

// In natural order of the devices' paths (sda9 before sda10).
std::vector<DeviceChange> changesBetween(const ComparedDevices& before, const ComparedDevices& after);

}  // namespace kivclaim::tools

#endif
