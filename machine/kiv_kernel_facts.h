// What the kernel says about devices, beside what the claim modules answer from their names.
#ifndef KIVCLAIM_MACHINE_KIV_KERNEL_FACTS_H
#define KIVCLAIM_MACHINE_KIV_KERNEL_FACTS_H

#include "framework/ztfi_requirements.h"

#include <memory>
#include <string>
#include <vector>

// Marks what the library exports, and what it keeps.
#define KIVCLAIM_KERNEL_API __attribute__((visibility("default")))
// See KIVCLAIM_KERNEL_API.
#define KIVCLAIM_KERNEL_INTERNAL __attribute__((visibility("hidden")))

namespace kivclaim {

struct KernelFactsData;
struct KernelReadingData;

// What a path leads to.
enum class KernelDevice {
    unknown,             // sysfs could not be read, or the device came after the reading: make a new one
    absent,              // nothing is at the path, or a node without a device
    noDevice,            // a file that is no block device
    disk,                // a whole device that is no mapping
    partition,           // made by the kernel
    multipathMap,        //
    multipathPartition,  // made by kpartx, of a multipath map
    logicalVolume,       // of LVM, also one of the layers that LVM keeps below its volumes
    otherMapping         // any other device of device-mapper
};

// Whether the kernel's account fits a claim.
enum class KernelVerdict {
    agrees,
    contradicts,
    cannotTell  // nothing is there, nothing could be read, or the claim is that of a module of the host's
};

// What the kernel says about one path.
//
// Threads: a value; copies may be used by several threads at once.
// Ownership: copies share what they hold, which outlives the reading.
// Failure: none of the operations fails, but those that return a new string may throw std::bad_alloc.
class KIVCLAIM_KERNEL_API KernelFacts {
public:
    // The path, as it was asked about.
    const std::string& path() const;
    // See KernelDevice. Everything below is neutral for the first three: empty strings, number 0.
    KernelDevice device() const;
    // The device's own name: "/dev/mapper/NAME" of a mapping, "/dev/sdX" of a disk.
    const std::string& name() const;
    // Of a partition, also of one that kpartx made: its number, 1 or more. Otherwise 0.
    unsigned int partition() const;
    // Of a partition: the device that it is a part of. Otherwise empty, as for a partition of unknown origin.
    const std::string& wholeDevice() const;
    // Of a disk that is a path of a multipath map, and of the partitions of such a disk: the map. Otherwise empty.
    const std::string& map() const;
    // The stack that the device belongs to: "device-mapper" for multipath maps and their partitions, "powerpath",
    // "native" for SCSI disks that are no path of a map and for their partitions, otherwise "none".
    const std::string& stack() const;
    // False when files of the device were missing or wrong: what is said of it may be wrong then.
    bool isComplete() const;
    // In plain words: "partition 3 of /dev/sdc, path of /dev/mapper/data". The texts are listed in docs/host-guide.md.
    std::string description() const;

    // Whether the device is one of the stack that claims it, as ClaimAnswer::stack names it; "none" for no claim.
    KernelVerdict verdictOn(const std::string& claimingStack) const;

private:
    friend class KernelReading;
    KIVCLAIM_KERNEL_INTERNAL explicit KernelFacts(std::shared_ptr<const KernelFactsData> facts);

    std::shared_ptr<const KernelFactsData> facts;
};

// One reading of a machine's sysfs, and answers from it.
//
// What for: make one for a look at the machine, ask about any number of paths, drop it. It reads names, numbers and the
// stacking of all block devices: a handful of small files for each. It runs nothing, opens no device, and reads nothing
// but sysfs; a question then looks where its path leads. What changes after the reading is not seen, but a path that
// leads to a device made later is told as unknown.
//
// Threads: create it on any thread; any number of threads may ask it at the same time.
// Ownership: owns what it read. Its answers may outlive it.
// Failure: sysfs that cannot be read is no failure of an operation: see isRead. Only std::bad_alloc is thrown.
// Blocking: on sysfs alone, which waits for no device.
class KIVCLAIM_KERNEL_API KernelReading {
public:
    // Of the machine that this process runs on.
    KernelReading();
    // Of the copy of another machine: a directory laid out as for `lsblk --sysroot`. Absolute links in it begin at the
    // directory, and nothing outside of it is opened. A node that was not copied counts as existing.
    explicit KernelReading(const std::string& root);
    KernelReading(const KernelReading&) = delete;
    KernelReading& operator=(const KernelReading&) = delete;
    ~KernelReading();

    // False when there is no sysfs: everything is unknown then.
    bool isRead() const;
    // Why sysfs could not be read, in one line; empty when it was. May contain bytes of the root's path.
    const std::string& problem() const;

    // About any name of a device under /dev; links are followed. A relative path begins at the working directory, of
    // a copy at its root.
    KernelFacts ask(const std::string& path) const;
    // About each path in turn, in the same order.
    std::vector<KernelFacts> askAll(const std::vector<std::string>& paths) const;

private:
    std::unique_ptr<const KernelReadingData> data;
};

}  // namespace kivclaim

#endif
