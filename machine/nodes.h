// The nodes under /dev of a recorded machine, as far as the recording lists them. Private to machine/.
//
// The list is kivclaim/nodes in the root, a line for each node: whether the recording user could read it, "r" or "-";
// the number of a block device, or "-" for anything else; and the path, with the octal escapes of /proc/self/mountinfo:
//
//   r 8:0 /dev/sda
//   - 254:0 /dev/dm-0
//   r - /dev/null
#ifndef KIVCLAIM_MACHINE_NODES_H
#define KIVCLAIM_MACHINE_NODES_H

#include "machine/machine.h"

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace kivclaim::machine {

class Tree;

constexpr char nodesFile[] = "kivclaim/nodes";

struct Node {
    std::optional<DeviceNumber> number;  // of a block device
    bool isReadable = true;
};

// Threads: any. Ownership: owns what it read. Failure: an invalid line is skipped.
class Nodes {
public:
    explicit Nodes(std::string_view text);

    // Null when nothing is listed there. A path is without links.
    const Node* at(const std::string& path) const;

private:
    std::unordered_map<std::string, Node> nodes;
};

// None for a live machine and for a root without the list: there every device has its node.
std::optional<Nodes> nodesOf(const Tree& tree);

std::string nodeLine(const std::string& path, const Node& node);

}  // namespace kivclaim::machine

#endif
