#include "tools/comparison/compared_device.h"

#include "tools/exit_status.h"
#include "tools/listing/asked_device.h"
#include "tools/output.h"
#include "tools/unsure.h"

#include <algorithm>
#include <cstring>

using kivclaim::machine::Device;
using kivclaim::machine::Machine;

namespace kivclaim::tools {

namespace {

// A disk has one WWID on all its paths, so that only the address tells them apart.
std::string identityOf(const Machine& machine, const Device& device)
{
    const Device& whole = machine.wholeOf(device);
    if (!device.mapUuid.empty()) {
        return "uuid " + std::string(device.mapUuid);
    }
    if (&whole != &device && device.partition != 0) {
        return identityOf(machine, whole) + " partition " + std::to_string(device.partition);
    }
    if (!device.wwid.empty() && !device.scsiAddress.empty()) {
        return "wwid " + std::string(device.wwid) + " at " + std::string(device.scsiAddress);
    }
    return "name " + std::string(device.kernelName);
}

ComparedDevice compared(const Machine& machine, const Device& device, const DeviceAnswer& answer)
{
    ComparedDevice result;
    result.path = device.node;
    result.kernelName = device.kernelName;
    result.size = device.bytes ? std::to_string(*device.bytes) : "";
    result.state = device.state;
    const Device* const map = machine.mapOf(device);
    result.map = map != nullptr ? std::string(map->node) : "";
    result.claim = answer.stack + " " + std::to_string(answer.level);
    return result;
}

// "/dev/sda, native 2, 67108864 bytes"
std::string description(const ComparedDevice& device)
{
    return device.claim + (device.size.empty() ? "" : ", " + device.size + " bytes") +
           (device.state.empty() ? "" : ", " + device.state) + (device.map.empty() ? "" : ", path of " + device.map);
}

void addChanges(const ComparedDevice& before, const ComparedDevice& after, std::vector<DeviceChange>& changes)
{
    const auto compare = [&](const char* fact, const std::string& one, const std::string& other) {
        if (one != other) {
            changes.push_back({"changed", after.path, fact, one, other});
        }
    };
    const bool isRenamed = before.path != after.path;
    compare("name", isRenamed ? before.path : before.kernelName, isRenamed ? after.path : after.kernelName);
    compare("size", before.size, after.size);
    compare("state", before.state, after.state);
    compare("map", before.map, after.map);
    compare("claim", before.claim, after.claim);
}

}  // namespace

ComparedDevices comparedDevices(const SessionOptions& options)
{
    using namespace kivclaim::machine;
    try {
        const Machine machine = Machine::read(options.root(), numbers | sizes | stacking | states | identities);
        DeviceQuestions questions(options, machine, false);
        std::vector<Doubt> doubts;
        ComparedDevices devices;
        for (const Device& device : machine.devices()) {
            if (device.hidden) {
                continue;
            }
            std::string identity = identityOf(machine, device);
            if (devices.count(identity) != 0) {
                identity += " name " + std::string(device.kernelName);
            }
            const DeviceAnswer answer = questions.ask(device);
            doubts.push_back(answer.doubt);
            devices.emplace(std::move(identity), compared(machine, device, answer));
        }
        if (!options.noWarnings) {
            complainOfDoubts(doubts);
        }
        return devices;
    } catch (const ReadError& error) {
        throw CommandError(error.what());
    }
}

std::vector<DeviceChange> changesBetween(const ComparedDevices& before, const ComparedDevices& after)
{
    std::vector<DeviceChange> changes;
    for (const auto& [identity, device] : before) {
        const auto other = after.find(identity);
        if (other == after.end()) {
            changes.push_back({"went", device.path, "", description(device), ""});
        } else {
            addChanges(device, other->second, changes);
        }
    }
    for (const auto& [identity, device] : after) {
        if (before.count(identity) == 0) {
            changes.push_back({"came", device.path, "", "", description(device)});
        }
    }
    std::stable_sort(changes.begin(), changes.end(), [](const DeviceChange& one, const DeviceChange& other) {
        return strverscmp(one.device.c_str(), other.device.c_str()) < 0;
    });
    return changes;
}

}  // namespace kivclaim::tools
