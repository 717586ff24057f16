// What the kernel says about the device at a path: the truth that the library's answers are compared with.
#ifndef KIVCLAIM_TOOLS_AUDIT_KERNEL_TRUTH_H
#define KIVCLAIM_TOOLS_AUDIT_KERNEL_TRUTH_H

#include "machine/machine.h"

#include <string>
#include <vector>

namespace kivclaim::tools {

struct PartitionPath {
    unsigned int number = 0;
    std::string path;
};

// The kernel's answers about one path. Threads: any. Ownership: borrows the machine. Failure: none; about what is not
// there all answers are neutral.
class KernelTruth {
public:
    // The facts that it needs of a machine.
    static constexpr kivclaim::machine::Facts facts = kivclaim::machine::numbers | kivclaim::machine::stacking;

    // There is no device at the path, or sysfs could not be read.
    KernelTruth() = default;
    // One of the machine's devices.
    KernelTruth(const kivclaim::machine::Machine& machine, const kivclaim::machine::Device& device)
        : machine(&machine), device(&device)
    {
    }
    // The facts about whatever is at a path.
    KernelTruth(const kivclaim::machine::Machine& machine, const std::string& path)
        : machine(&machine), device(machine.byPath(path)), isOtherFile(device == nullptr && isFile(machine, path))
    {
    }

    // A file of another type, where there are no devices to read.
    static KernelTruth ofOtherFile()
    {
        KernelTruth truth;
        truth.isOtherFile = true;
        return truth;
    }

    bool exists() const { return device != nullptr; }
    bool isMultipath() const;      // a map of dm-multipath, or a partition of one
    bool isLogicalVolume() const;  // of LVM
    bool isOtherMapping() const;   // any other device of device-mapper

    std::string path() const;         // the kernel's own name for it, under /dev or /dev/mapper
    std::string number() const;       // "253:4"
    std::string uuid() const;         // of a device of device-mapper
    std::string map() const;          // of a disk that is a path of a multipath map, and of its partitions: that map
    unsigned int partition() const;   // 0 for a whole device
    std::string wholeDevice() const;  // of a partition: its whole device
    std::vector<PartitionPath> partitions() const;  // of a whole device, by number
    kivclaim::machine::Marks marks() const;         // what was wrong with its files

    // The stack that it belongs to by its kind, by the names of tools/stack_table.h; "none" for all others.
    std::string stack() const;
    // What it is, in a few words.
    std::string description() const;

    // The number of the node at a path, if that is not this device; else empty.
    std::string otherNumberAt(const std::string& path) const;
    // Are both names of one device of the machine?
    bool sameDevice(const std::string& one, const std::string& other) const;

private:
    static bool isFile(const kivclaim::machine::Machine& machine, const std::string& path);
    bool isOfKind(std::initializer_list<kivclaim::machine::Kind> kinds) const;
    // Of the whole device of a partition that the kernel made.
    kivclaim::machine::Kind kindOfDisk() const;
    std::string descriptionOfWhole() const;

    const kivclaim::machine::Machine* machine = nullptr;
    const kivclaim::machine::Device* device = nullptr;
    bool isOtherFile = false;
};

}  // namespace kivclaim::tools

#endif
