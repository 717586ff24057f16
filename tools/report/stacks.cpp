#include "tools/report/stacks.h"

#include "tools/listing/device_tree.h"

#include <algorithm>
#include <map>

using namespace kivclaim::machine;

namespace kivclaim::tools {

namespace {

constexpr std::size_t deepestLayer = 64;
constexpr std::size_t columnsOfSingleDevices = 4;

class Grouping {
public:
    explicit Grouping(const ReportedMachine& reported)
        : reported(reported), graph(reported.answers.size()), groups(reported.answers.size(), noGroup)
    {
        for (const DeviceIndex device : reported.devices) {
            for (const DeviceIndex parent : kernelParents(reported.machine.devices()[device])) {
                if (parent < groups.size() && parent != device && hasNode(parent)) {
                    graph.link(parent, device);
                }
            }
        }
    }

    std::vector<DeviceStack> stacks()
    {
        std::vector<DeviceStack> all;
        DeviceStack singles;
        for (const DeviceIndex device : reported.devices) {
            if (groups[device] != noGroup) {
                continue;
            }
            const std::vector<DeviceIndex> members = membersWith(device, all.size());
            if (members.size() > 1 || isMounted(device)) {
                all.push_back(arranged(members));
            } else {
                singles.boxes.push_back({device, false, 0, 0, {}});
            }
        }
        if (!singles.boxes.empty()) {
            spread(singles);
            all.push_back(std::move(singles));
        }
        return all;
    }

private:
    static constexpr std::size_t noGroup = SIZE_MAX;

    bool hasNode(DeviceIndex device) const
    {
        return !reported.machine.devices()[device].hidden && !reported.machine.devices()[device].node.empty();
    }

    bool isMounted(DeviceIndex device) const { return !reported.machine.devices()[device].mountPoints.empty(); }

    // From the bottom to the top, and beside each other in the order in which they are met.
    std::vector<DeviceIndex> membersWith(DeviceIndex first, std::size_t group)
    {
        std::vector<DeviceIndex> members;
        std::vector<DeviceIndex> open = {first};
        groups[first] = group;
        while (!open.empty()) {
            const DeviceIndex device = open.back();
            open.pop_back();
            members.push_back(device);
            for (const auto* const side : {&graph.children[device], &graph.parents[device]}) {
                for (const DeviceIndex other : *side) {
                    if (groups[other] == noGroup) {
                        groups[other] = group;
                        open.push_back(other);
                    }
                }
            }
        }
        std::sort(members.begin(), members.end());
        return members;
    }

    // A device is one layer above the highest that it is made of.
    std::map<DeviceIndex, std::size_t> layersOf(const std::vector<DeviceIndex>& members) const
    {
        std::map<DeviceIndex, std::size_t> layers;
        bool isChanging = true;
        for (std::size_t round = 0; isChanging && round < deepestLayer; ++round) {
            isChanging = false;
            for (const DeviceIndex device : members) {
                for (const DeviceIndex parent : graph.parents[device]) {
                    if (layers[device] <= layers[parent] && layers[parent] < deepestLayer) {
                        layers[device] = layers[parent] + 1;
                        isChanging = true;
                    }
                }
            }
        }
        return layers;
    }

    DeviceStack arranged(const std::vector<DeviceIndex>& members) const
    {
        DeviceStack stack;
        std::map<DeviceIndex, std::size_t> layers = layersOf(members);
        std::map<DeviceIndex, std::size_t> boxes;
        for (const DeviceIndex device : members) {
            boxes[device] = stack.boxes.size();
            stack.boxes.push_back({device, false, layers[device], 0, {}});
        }
        for (StackBox& box : stack.boxes) {
            for (const DeviceIndex parent : graph.parents[box.device]) {
                box.below.push_back(boxes[parent]);
            }
        }
        addMounts(stack);
        place(stack);
        return stack;
    }

    void addMounts(DeviceStack& stack) const
    {
        std::size_t last = 0;
        for (const StackBox& box : stack.boxes) {
            last = std::max(last, box.layer);
        }
        for (std::size_t i = 0, devices = stack.boxes.size(); i < devices; ++i) {
            if (isMounted(stack.boxes[i].device)) {
                stack.boxes.push_back({stack.boxes[i].device, true, last + 1, 0, {i}});
            }
        }
    }

    // Each layer in the order of what is below it, which keeps lines from crossing in most stacks.
    static void place(DeviceStack& stack)
    {
        for (const StackBox& box : stack.boxes) {
            stack.layers = std::max(stack.layers, box.layer + 1);
        }
        std::vector<std::size_t> counts;  // of the boxes in each layer
        for (std::size_t layer = 0; layer < stack.layers; ++layer) {
            std::vector<std::size_t> order;
            for (std::size_t i = 0; i < stack.boxes.size(); ++i) {
                if (stack.boxes[i].layer == layer) {
                    order.push_back(i);
                }
            }
            std::stable_sort(order.begin(), order.end(), [&](std::size_t one, std::size_t other) {
                return weightOf(stack, one) < weightOf(stack, other);
            });
            for (std::size_t i = 0; i < order.size(); ++i) {
                stack.boxes[order[i]].place = 2 * i;
            }
            counts.push_back(order.size());
        }
        stack.places = *std::max_element(counts.begin(), counts.end());
        for (StackBox& box : stack.boxes) {
            box.place += stack.places - counts[box.layer];
        }
    }

    static double weightOf(const DeviceStack& stack, std::size_t box)
    {
        double sum = 0;
        for (const std::size_t below : stack.boxes[box].below) {
            sum += static_cast<double>(stack.boxes[below].place);
        }
        return stack.boxes[box].below.empty() ? 0 : sum / static_cast<double>(stack.boxes[box].below.size());
    }

    static void spread(DeviceStack& singles)
    {
        singles.layers = std::min(columnsOfSingleDevices, singles.boxes.size());
        singles.places = (singles.boxes.size() + singles.layers - 1) / singles.layers;
        for (std::size_t i = 0; i < singles.boxes.size(); ++i) {
            singles.boxes[i].layer = i % singles.layers;
            singles.boxes[i].place = i / singles.layers * 2;
        }
    }

    const ReportedMachine& reported;
    DeviceGraph graph;
    std::vector<std::size_t> groups;
};

}  // namespace

std::vector<DeviceStack> stacksOf(const ReportedMachine& reported)
{
    return Grouping(reported).stacks();
}

}  // namespace kivclaim::tools
