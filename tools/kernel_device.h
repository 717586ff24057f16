// What the kernel says about a block device: the truth that the library's answers are compared with.
#ifndef KIVCLAIM_TOOLS_KERNEL_DEVICE_H
#define KIVCLAIM_TOOLS_KERNEL_DEVICE_H

#include "tools/udev_handle.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace kivclaim::tools {

enum class KernelKind {
    absent,         // nothing is there, or a node without a device behind it
    noBlockDevice,  // a file of another type
    multipathMap,   // a map of dm-multipath, or a partition of one
    logicalVolume,  // of LVM
    otherMapping,   // any other device-mapper device
    scsiDisk,       // of the sd driver, or a partition of one
    powerPath,      // a PowerPath pseudo device, or a partition of one
    other           // any other block device
};

struct KernelPartition {
    unsigned int number = 0;
    std::string path;
};

struct KernelDevice {
    KernelKind kind = KernelKind::absent;
    dev_t number = 0;
    std::string path;            // the kernel's own name for it, under /dev or /dev/mapper
    std::string uuid;            // of a device-mapper device
    std::string map;             // for a SCSI disk that is a path of a multipath map, and its partitions: that map
    unsigned int partition = 0;  // 0 for a whole device
    std::string wholeDevice;     // for a partition: what it lies on
    std::vector<KernelPartition> partitions;  // of a whole device, by number

    bool exists() const { return kind != KernelKind::absent && kind != KernelKind::noBlockDevice; }
};

// The stack that the device belongs to by its kind, by the names of tools/stack_table.h; "none" for all others.
std::string kernelStack(const KernelDevice& device);

// What it is, in a few words.
std::string description(const KernelDevice& device);

// "253:4"
std::string numberText(dev_t number);

// Reads udev's database and sysfs anew for each question. One thread at a time.
class Kernel {
public:
    // Throws CommandError when libudev cannot be used.
    Kernel();

    // The device at a place in sysfs; absent when it has gone.
    KernelDevice deviceAt(const std::string& sysfsPath) const;

    // The device behind a node of any name, by its device number.
    KernelDevice deviceBehind(const std::string& path) const;

private:
    UdevContext context;
};

}  // namespace kivclaim::tools

#endif
