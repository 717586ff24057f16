// The order and nesting of devices in the table.
#ifndef KIVCLAIM_TOOLS_LISTING_DEVICE_TREE_H
#define KIVCLAIM_TOOLS_LISTING_DEVICE_TREE_H

#include "machine/machine.h"

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

namespace kivclaim::tools {

// For each device those directly above and below it; disks are at the bottom of the machine. In the tables they come
// first, so `parents` are the devices that a device consists of.
struct DeviceGraph {
    explicit DeviceGraph(std::size_t devices) : parents(devices), children(devices) {}

    void link(kivclaim::machine::DeviceIndex parent, kivclaim::machine::DeviceIndex child);

    std::vector<std::vector<kivclaim::machine::DeviceIndex>> parents;
    std::vector<std::vector<kivclaim::machine::DeviceIndex>> children;
};

// What the kernel says a device is made of: the disk of a partition, or the slaves.
std::vector<kivclaim::machine::DeviceIndex> kernelParents(const kivclaim::machine::Device& device);

// A device in the tree. A device with several parents is under each of them.
struct TreeNode {
    kivclaim::machine::DeviceIndex device;
    kivclaim::machine::DeviceIndex parent;  // directly above it, shown or not; noDevice at the top
    std::size_t line;                       // of the node that it is nested in; noLine at the top
};
constexpr std::size_t noLine = SIZE_MAX;

// The devices of `order` that are shown, from the top to the bottom, and beside each other in that order. Devices below
// one that is not shown take its place. `tops`, if there are any, are the only ones at the top.
//
// Every shown device comes at least once, circles or not. A device is not repeated below itself, nor deeper than 64
// levels, nor, from 250,000 lines on, with what is below it.
std::vector<TreeNode> treeOf(const std::vector<std::vector<kivclaim::machine::DeviceIndex>>& children,
                             const std::vector<kivclaim::machine::DeviceIndex>& order, const std::vector<bool>& shown,
                             const std::vector<kivclaim::machine::DeviceIndex>& tops);

}  // namespace kivclaim::tools

#endif
