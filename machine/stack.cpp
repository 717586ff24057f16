// Joins the devices of a machine: slaves and holders, whole devices and partitions, circles.
#include "machine/state.h"
#include "machine/text.h"

namespace kivclaim::machine {

namespace {

using Edge = std::pair<DeviceIndex, DeviceIndex>;  // a device and its slave

std::vector<Edge> turned(const std::vector<Edge>& edges)
{
    std::vector<Edge> other;
    other.reserve(edges.size());
    for (const auto& [upper, lower] : edges) {
        other.emplace_back(lower, upper);
    }
    return other;
}

// Removes, again and again, the devices without a neighbour in one direction; what is left is in a circle of that
// direction or leads to one.
void peel(std::size_t devices, const std::vector<Edge>& sortedEdges, std::vector<bool>& isLeft)
{
    std::vector<std::size_t> first(devices + 1, 0);
    std::vector<std::size_t> waiting(devices, 0);
    for (const auto& [from, to] : sortedEdges) {
        ++first[from + 1];
        ++waiting[to];
    }
    for (std::size_t i = 0; i < devices; ++i) {
        first[i + 1] += first[i];
    }
    std::vector<DeviceIndex> free;
    for (DeviceIndex i = 0; i < devices; ++i) {
        if (waiting[i] == 0) {
            free.push_back(i);
        }
    }
    while (!free.empty()) {
        const DeviceIndex one = free.back();
        free.pop_back();
        isLeft[one] = false;
        for (std::size_t i = first[one]; i < first[one + 1]; ++i) {
            if (--waiting[sortedEdges[i].second] == 0) {
                free.push_back(sortedEdges[i].second);
            }
        }
    }
}

// A partition counts as on top of its disk, so following partitions and holders upwards must not loop.
void markCircles(std::vector<Device>& devices, std::vector<Edge> edges)
{
    for (DeviceIndex i = 0; i < devices.size(); ++i) {
        if (devices[i].kind == Kind::partition && devices[i].whole != noDevice) {
            edges.emplace_back(i, devices[i].whole);
        }
    }
    std::vector<Edge> upwards = turned(edges);
    std::vector<bool> hasCircleBelow(devices.size(), true);
    std::vector<bool> hasCircleAbove(devices.size(), true);
    std::sort(edges.begin(), edges.end());
    std::sort(upwards.begin(), upwards.end());
    peel(devices.size(), edges, hasCircleAbove);
    peel(devices.size(), upwards, hasCircleBelow);
    for (DeviceIndex i = 0; i < devices.size(); ++i) {
        if (hasCircleAbove[i] && hasCircleBelow[i]) {
            devices[i].marks |= circle;
        }
    }
}

// The whole device of a partition that kpartx made is what it is mapped onto, except that logical partitions are
// mapped onto the extended one.
DeviceIndex wholeBelow(const std::vector<Device>& devices, DeviceIndex partition)
{
    const std::string_view origin = MapUuid(devices[partition].mapUuid).origin;
    DeviceIndex below = partition;
    for (std::size_t steps = 0; steps < devices.size() && !devices[below].slaves.empty(); ++steps) {
        below = devices[below].slaves[0];
        const MapUuid uuid(devices[below].mapUuid);
        if (uuid.partition == 0 || uuid.origin != origin) {
            return below;
        }
    }
    return noDevice;
}

// A map without a uuid cannot be distinguished from the origin of its partitions.
bool isOrigin(const Device& whole, const Device& partition)
{
    return isMapping(whole.kind) && (whole.mapUuid.empty() || MapUuid(partition.mapUuid).origin == whole.mapUuid);
}

void joinPartitions(Machine::State& machine)
{
    std::vector<Device>& devices = machine.devices;
    std::vector<Edge> partitions;
    for (DeviceIndex i = 0; i < devices.size(); ++i) {
        Device& device = devices[i];
        if (isMapping(device.kind) && device.partition != 0) {
            device.whole = wholeBelow(devices, i);
        }
        if (device.whole != noDevice && (device.kind == Kind::partition || isOrigin(devices[device.whole], device))) {
            partitions.emplace_back(device.whole, i);
        }
    }
    std::stable_sort(partitions.begin(), partitions.end(), [&](const Edge& one, const Edge& other) {
        return devices[one.second].partition < devices[other.second].partition;
    });
    deal(machine.texts, devices, partitions, &Device::partitions);
}

}  // namespace

void stack(Machine::State& machine, std::vector<std::pair<DeviceIndex, DeviceIndex>> slaves)
{
    std::sort(slaves.begin(), slaves.end());
    slaves.erase(std::unique(slaves.begin(), slaves.end()), slaves.end());
    std::vector<Edge> holders = turned(slaves);
    std::sort(holders.begin(), holders.end());
    deal(machine.texts, machine.devices, slaves, &Device::slaves);
    deal(machine.texts, machine.devices, holders, &Device::holders);
    joinPartitions(machine);
    // Only slaves can close a circle.
    if (!slaves.empty()) {
        markCircles(machine.devices, std::move(slaves));
    }
    for (Device& device : machine.devices) {
        if (device.kind == Kind::partition && device.whole != noDevice) {
            device.removable = machine.devices[device.whole].removable;
        }
    }
}

}  // namespace kivclaim::machine
