// By what a disk is attached. Private to machine/.
#ifndef KIVCLAIM_MACHINE_TRANSPORT_H
#define KIVCLAIM_MACHINE_TRANSPORT_H

#include "machine/file_reader.h"
#include "machine/tree.h"

#include <map>
#include <string>
#include <string_view>

namespace kivclaim::machine {

// A host adapter has thousands of disks, so its directories are read only once.
// Threads: one. Ownership: borrows the tree and the reader. Failure: a transport that cannot be read is empty.
class TransportReader {
public:
    TransportReader(const Tree& tree, FileReader& files) : tree(tree), files(files) {}

    // As lsblk names it: fc, iscsi, sas, usb, sata, nvme, virtio ...; empty when it is not known. `place` is the
    // device's path in sysfs. The text is a constant.
    std::string_view of(const Device& device, std::string_view place);

private:
    struct Host {
        std::string_view first;  // what comes before anything that the disk's own directory tells
        bool iscsi = false;
        std::string_view last;  // what comes after it
    };

    std::string_view ofScsi(const Device& device, std::string_view place);
    const Host& hostOf(std::string_view number);
    bool has(const std::string& name) const;
    std::string attribute(const std::string& name);

    const Tree& tree;
    FileReader& files;
    std::map<std::string, Host, std::less<>> hosts;
};

}  // namespace kivclaim::machine

#endif
