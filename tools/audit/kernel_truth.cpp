#include "tools/audit/kernel_truth.h"

#include "tools/stack_table.h"

#include <algorithm>

using kivclaim::machine::Device;
using kivclaim::machine::DeviceIndex;
using kivclaim::machine::DeviceNumber;
using kivclaim::machine::Kind;
using kivclaim::machine::Machine;

namespace kivclaim::tools {

namespace {

std::string text(DeviceNumber number)
{
    return std::to_string(number.major) + ":" + std::to_string(number.minor);
}

}  // namespace

bool KernelTruth::isFile(const Machine& machine, const std::string& path)
{
    // A node whose number belongs to no device counts as absent.
    return !machine.numberAt(path) && machine.isAnythingAt(path);
}

bool KernelTruth::isOfKind(std::initializer_list<Kind> kinds) const
{
    return exists() && std::find(kinds.begin(), kinds.end(), device->kind) != kinds.end();
}

bool KernelTruth::isMultipath() const
{
    return isOfKind({Kind::multipathMap, Kind::multipathPartition});
}

bool KernelTruth::isLogicalVolume() const
{
    return isOfKind({Kind::volume, Kind::hiddenVolume});
}

bool KernelTruth::isOtherMapping() const
{
    return exists() && machine::isMapping(device->kind) && !isMultipath() && !isLogicalVolume();
}

std::string KernelTruth::path() const
{
    return exists() ? std::string(device->node) : "";
}

std::string KernelTruth::number() const
{
    return exists() && device->number ? text(*device->number) : "";
}

std::string KernelTruth::uuid() const
{
    return exists() ? std::string(device->mapUuid) : "";
}

std::string KernelTruth::map() const
{
    const bool isDisk = exists() && !machine::isMapping(device->kind);
    const Device* const holding = isDisk ? machine->mapOf(*device) : nullptr;
    return holding != nullptr ? std::string(holding->node) : "";
}

unsigned int KernelTruth::partition() const
{
    return exists() ? device->partition : 0;
}

std::string KernelTruth::wholeDevice() const
{
    const bool isKnown = partition() != 0 && device->whole != machine::noDevice;
    return isKnown ? std::string(machine->wholeOf(*device).node) : "";
}

std::vector<PartitionPath> KernelTruth::partitions() const
{
    std::vector<PartitionPath> paths;
    if (exists() && partition() == 0) {
        for (const DeviceIndex each : device->partitions) {
            const Device& part = machine->devices()[each];
            paths.push_back({part.partition, std::string(part.node)});
        }
    }
    return paths;
}

machine::Marks KernelTruth::marks() const
{
    return exists() ? device->marks : machine::noMark;
}

Kind KernelTruth::kindOfDisk() const
{
    return device->kind == Kind::partition ? machine->wholeOf(*device).kind : device->kind;
}

std::string KernelTruth::stack() const
{
    if (isMultipath()) {
        return deviceMapperStack.name;
    }
    if (exists() && kindOfDisk() == Kind::powerPath) {
        return powerPathStack.name;
    }
    // A path of a map is used through that map only.
    return exists() && kindOfDisk() == Kind::scsiDisk && map().empty() ? nativeStack.name : noStack;
}

std::string KernelTruth::descriptionOfWhole() const
{
    if (!exists()) {
        return isOtherFile ? "no block device" : "no such device";
    }
    if (isMultipath()) {
        return "multipath map";
    }
    if (isLogicalVolume()) {
        return "logical volume";
    }
    if (isOtherMapping()) {
        // "CRYPT" of CRYPT-LUKS2-…
        const std::string owner = uuid().substr(0, uuid().find('-'));
        return "device-mapper device, " + (owner.empty() ? "without uuid" : owner);
    }
    if (device->kind == Kind::scsiDisk) {
        return "SCSI disk";
    }
    return device->kind == Kind::powerPath ? "PowerPath device" : "block device of no stack";
}

std::string KernelTruth::description() const
{
    const std::string its = map();
    const std::string path = its.empty() ? "" : ", path of " + its;
    if (partition() != 0) {
        return "partition " + std::to_string(partition()) + " of " + wholeDevice() + path;
    }
    return descriptionOfWhole() + path;
}

std::string KernelTruth::otherNumberAt(const std::string& path) const
{
    const auto found = exists() ? machine->numberAt(path) : std::nullopt;
    return found && device->number && !(*found == *device->number) ? text(*found) : "";
}

bool KernelTruth::sameDevice(const std::string& one, const std::string& other) const
{
    if (one == other) {
        return true;
    }
    const auto first = exists() ? machine->numberAt(one) : std::nullopt;
    const auto second = first ? machine->numberAt(other) : std::nullopt;
    return second && *first == *second;
}

}  // namespace kivclaim::tools
