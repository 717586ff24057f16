// The state of a machine, shared by the code that fills it and the code that answers questions. Private to machine/.
#ifndef KIVCLAIM_MACHINE_STATE_H
#define KIVCLAIM_MACHINE_STATE_H

#include "machine/file_reader.h"
#include "machine/machine.h"
#include "machine/nodes.h"
#include "machine/text_pool.h"
#include "machine/tree.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kivclaim::machine {

// What is at a path, as a program on the machine would find it.
struct FoundFile {
    bool isThere = false;  // a file, which has the status; a node that was not recorded is no file
    struct stat status {};
    DeviceIndex device = noDevice;
};

// All that was read of a machine, with indexes by name and number.
// Threads: one while it is filled; then any. Ownership: owns texts, lists and the open root; devices point into the
// texts. Failure: the constructor throws ReadError; an unknown name is noDevice.
struct Machine::State {
    explicit State(const Root& root) : tree(root), nodes(nodesOf(tree)) {}

    DeviceIndex find(const std::unordered_map<std::string_view, DeviceIndex>& names, std::string_view name) const
    {
        const auto found = names.find(name);
        return found != names.end() ? found->second : noDevice;
    }
    DeviceIndex byKernelName(std::string_view name) const { return find(kernelNames, name); }
    DeviceIndex byMapName(std::string_view name) const { return find(mapNames, name); }
    DeviceIndex byNumber(DeviceNumber number) const;
    // "/dev/sda", "/dev/dm-0" or "/dev/mapper/mpatha", no other name.
    DeviceIndex byNode(std::string_view path) const;
    DeviceIndex byPath(const std::string& path) const { return lookUp(path).device; }
    FoundFile lookUp(const std::string& path) const;
    // The result of stat() for a recorded path; false when nothing was recorded there.
    bool statusOf(const Destination& destination, struct stat& status) const;

    Tree tree;
    std::optional<Nodes> nodes;  // of a recorded machine that lists them
    Facts facts = basicFacts;
    TextPool texts;
    std::vector<Device> devices;
    std::unordered_map<std::string_view, DeviceIndex> kernelNames;
    std::unordered_map<std::string_view, DeviceIndex> mapNames;
    std::unordered_map<std::uint64_t, DeviceIndex> deviceNumbers;
    Marks marks = noMark;
};

// Gives each device its part of `items`, in their order, as a list.
template <class Item>
void deal(TextPool& texts, std::vector<Device>& devices, std::vector<std::pair<DeviceIndex, Item>>& items,
          List<Item> Device::*list)
{
    std::stable_sort(items.begin(), items.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });
    Item* const all = texts.array<Item>(items.size());
    for (std::size_t begin = 0, end = 0; begin < items.size(); begin = end) {
        for (; end < items.size() && items[end].first == items[begin].first; ++end) {
            all[end] = items[end].second;
        }
        devices[items[begin].first].*list = List<Item>(all + begin, end - begin);
    }
}

// Reads all of a machine that was made for these facts. Throws ReadError, like Machine::read.
void readMachine(Machine::State& machine, Facts facts);

// The steps of reading a machine, in this order.
void readDevices(Machine::State& machine, FileReader& files);
void stack(Machine::State& machine, std::vector<std::pair<DeviceIndex, DeviceIndex>> slaves);
void readLinks(Machine::State& machine, FileReader& files);
void readMounts(Machine::State& machine, FileReader& files);

}  // namespace kivclaim::machine

#endif
