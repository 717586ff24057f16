#include "tools/listing/device_tree.h"

#include <algorithm>

using namespace kivclaim::machine;

namespace kivclaim::tools {

namespace {

constexpr std::size_t deepest = 64;
constexpr std::size_t longestWithRepeats = 250000;

class TreeMaker {
public:
    TreeMaker(const std::vector<std::vector<DeviceIndex>>& children, const std::vector<DeviceIndex>& order,
              const std::vector<bool>& shown)
        : children(children),
          order(order),
          shown(shown),
          rank(shown.size()),
          nearest(shown.size()),
          isPlaced(shown.size()),
          isInBranch(shown.size()),
          lastVisitFor(shown.size(), noDevice)
    {
        for (std::size_t i = 0; i < order.size(); ++i) {
            rank[order[i]] = i;
        }
    }

    std::vector<TreeNode> make(const std::vector<DeviceIndex>& tops)
    {
        std::vector<bool> isBelow(shown.size());
        for (const DeviceIndex device : order) {
            if (shown[device]) {
                findNearest(device);
                for (const Link& link : nearest[device]) {
                    isBelow[link.device] = true;
                }
            }
        }
        for (const DeviceIndex device : tops.empty() ? order : tops) {
            if (shown[device] && (!tops.empty() || !isBelow[device])) {
                place({device, noDevice}, noLine, 0);
            }
        }
        if (tops.empty()) {
            placeTheRest();
        }
        return std::move(nodes);
    }

private:
    struct Link {
        DeviceIndex device;
        DeviceIndex parent;  // through which it was reached
    };

    // The shown devices below `device` with none between.
    void findNearest(DeviceIndex device)
    {
        std::vector<DeviceIndex> open = {device};
        lastVisitFor[device] = device;
        while (!open.empty()) {
            const DeviceIndex parent = open.back();
            open.pop_back();
            for (const DeviceIndex child : children[parent]) {
                if (lastVisitFor[child] == device) {
                    continue;
                }
                lastVisitFor[child] = device;
                if (shown[child]) {
                    nearest[device].push_back({child, parent});
                } else {
                    open.push_back(child);
                }
            }
        }
        std::sort(nearest[device].begin(), nearest[device].end(),
                  [this](const Link& one, const Link& other) { return rank[one.device] < rank[other.device]; });
    }

    void place(const Link& link, std::size_t above, std::size_t depth)
    {
        const std::size_t line = nodes.size();
        const bool isRepeated = isPlaced[link.device];
        nodes.push_back({link.device, link.parent, above});
        isPlaced[link.device] = true;
        if (depth == deepest || (isRepeated && line >= longestWithRepeats)) {
            return;
        }
        isInBranch[link.device] = true;
        for (const Link& below : nearest[link.device]) {
            if (!isInBranch[below.device]) {
                place(below, line, depth + 1);
            }
        }
        isInBranch[link.device] = false;
    }

    // Each at the top: devices in circles, which no top leads to, and those too deep in a stack to be placed under
    // theirs.
    void placeTheRest()
    {
        for (const DeviceIndex device : order) {
            if (shown[device] && !isPlaced[device]) {
                place({device, noDevice}, noLine, 0);
            }
        }
    }

    const std::vector<std::vector<DeviceIndex>>& children;
    const std::vector<DeviceIndex>& order;
    const std::vector<bool>& shown;
    std::vector<std::size_t> rank;
    std::vector<std::vector<Link>> nearest;
    std::vector<bool> isPlaced;
    std::vector<bool> isInBranch;
    std::vector<DeviceIndex> lastVisitFor;
    std::vector<TreeNode> nodes;
};

}  // namespace

void DeviceGraph::link(DeviceIndex parent, DeviceIndex child)
{
    if (parent != child) {
        parents[child].push_back(parent);
        children[parent].push_back(child);
    }
}

std::vector<DeviceIndex> kernelParents(const Device& device)
{
    if (device.kind == Kind::partition) {
        return device.whole != noDevice ? std::vector<DeviceIndex>{device.whole} : std::vector<DeviceIndex>{};
    }
    return {device.slaves.begin(), device.slaves.end()};
}

std::vector<TreeNode> treeOf(const std::vector<std::vector<DeviceIndex>>& children,
                             const std::vector<DeviceIndex>& order, const std::vector<bool>& shown,
                             const std::vector<DeviceIndex>& tops)
{
    return TreeMaker(children, order, shown).make(tops);
}

}  // namespace kivclaim::tools
