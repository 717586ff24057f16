#include "machine/kiv_kernel_facts.h"

#include "machine/machine.h"

#include <unistd.h>

#include <optional>
#include <utility>

using kivclaim::machine::Device;
using kivclaim::machine::Kind;
using kivclaim::machine::Machine;
using kivclaim::machine::Root;

namespace kivclaim {

struct KernelFactsData {
    std::string path;
    KernelDevice device = KernelDevice::unknown;
    std::string name;
    unsigned int partition = 0;
    std::string wholeDevice;
    std::string map;
    std::string stack;
    std::string kind;  // in plain words
    bool isComplete = true;
};

struct KernelReadingData {
    explicit KernelReadingData(const Root& root) : isLive(root.isLive())
    {
        try {
            machine.emplace(Machine::read(root, machine::numbers | machine::stacking));
        } catch (const machine::ReadError& error) {
            problem = error.what();
        }
    }

    bool isLive;
    std::optional<Machine> machine;
    std::string problem;
};

namespace {

constexpr char deviceMapper[] = "device-mapper";
constexpr char powerPath[] = "powerpath";
constexpr char native[] = "native";
constexpr char noStack[] = "none";

// Those that go by the kind alone.
KernelDevice deviceOf(Kind kind)
{
    switch (kind) {
        case Kind::partition:
            return KernelDevice::partition;
        case Kind::multipathMap:
            return KernelDevice::multipathMap;
        case Kind::multipathPartition:
            return KernelDevice::multipathPartition;
        case Kind::volume:
        case Kind::hiddenVolume:
            return KernelDevice::logicalVolume;
        case Kind::crypt:
        case Kind::otherMapping:
            return KernelDevice::otherMapping;
        default:
            return KernelDevice::disk;
    }
}

const char* wordsFor(Kind kind)
{
    switch (kind) {
        case Kind::multipathMap:
            return "multipath map";
        case Kind::volume:
        case Kind::hiddenVolume:
            return "logical volume";
        case Kind::crypt:
        case Kind::otherMapping:
            return "other mapping";
        case Kind::scsiDisk:
            return "SCSI disk";
        case Kind::powerPath:
            return "PowerPath device";
        default:
            return "other disk";
    }
}

// A path of a map is used through that map only.
const char* stackOf(Kind kind, Kind kindOfDisk, bool isPath)
{
    if (kind == Kind::multipathMap || kind == Kind::multipathPartition) {
        return deviceMapper;
    }
    if (kindOfDisk == Kind::powerPath) {
        return powerPath;
    }
    return kindOfDisk == Kind::scsiDisk && !isPath ? native : noStack;
}

// Whether the kernel has the device now.
bool isInSysfs(machine::DeviceNumber number)
{
    const std::string text = std::to_string(number.major) + ":" + std::to_string(number.minor);
    return access(("/sys/dev/block/" + text).c_str(), F_OK) == 0;
}

// What is at a path that leads to no device of the reading.
KernelDevice withoutDevice(const Machine& machine, bool isLive, const std::string& path)
{
    if (const auto number = machine.numberAt(path)) {
        return isLive && isInSysfs(*number) ? KernelDevice::unknown : KernelDevice::absent;
    }
    return machine.isAnythingAt(path) ? KernelDevice::noDevice : KernelDevice::absent;
}

void describe(KernelFactsData& facts, const Machine& machine, const Device& device)
{
    const Device& disk = device.kind == Kind::partition ? machine.wholeOf(device) : device;
    const Device* const map = machine::isMapping(device.kind) ? nullptr : machine.mapOf(device);
    facts.device = deviceOf(device.kind);
    facts.name = device.node;
    facts.partition = device.partition;
    if (device.partition != 0 && device.whole != machine::noDevice) {
        facts.wholeDevice = machine.wholeOf(device).node;
    }
    facts.map = map != nullptr ? map->node : std::string_view();
    facts.stack = stackOf(device.kind, disk.kind, map != nullptr);
    facts.kind = wordsFor(device.kind);
    // An unexpected text is shown unchanged, so that nothing is hidden.
    facts.isComplete = (device.marks & ~machine::notUtf8) == 0;
}

bool isKnown(KernelDevice device)
{
    return device != KernelDevice::unknown && device != KernelDevice::absent && device != KernelDevice::noDevice;
}

}  // namespace

KernelFacts::KernelFacts(std::shared_ptr<const KernelFactsData> facts) : facts(std::move(facts))
{
}

const std::string& KernelFacts::path() const
{
    return facts->path;
}

KernelDevice KernelFacts::device() const
{
    return facts->device;
}

const std::string& KernelFacts::name() const
{
    return facts->name;
}

unsigned int KernelFacts::partition() const
{
    return facts->partition;
}

const std::string& KernelFacts::wholeDevice() const
{
    return facts->wholeDevice;
}

const std::string& KernelFacts::map() const
{
    return facts->map;
}

const std::string& KernelFacts::stack() const
{
    return facts->stack;
}

bool KernelFacts::isComplete() const
{
    return facts->isComplete;
}

std::string KernelFacts::description() const
{
    switch (facts->device) {
        case KernelDevice::unknown:
            return "not known";
        case KernelDevice::absent:
            return "no such device";
        case KernelDevice::noDevice:
            return "no block device";
        default:
            break;
    }
    const std::string path = facts->map.empty() ? "" : ", path of " + facts->map;
    if (facts->partition != 0) {
        const std::string whole = facts->wholeDevice.empty() ? "an unknown device" : facts->wholeDevice;
        return "partition " + std::to_string(facts->partition) + " of " + whole + path;
    }
    return facts->kind + path;
}

KernelVerdict KernelFacts::verdictOn(const std::string& claimingStack) const
{
    const bool isBuiltIn = claimingStack == deviceMapper || claimingStack == powerPath || claimingStack == native;
    if (claimingStack != noStack && !isBuiltIn) {
        return KernelVerdict::cannotTell;
    }
    if (facts->device == KernelDevice::noDevice) {
        return isBuiltIn ? KernelVerdict::contradicts : KernelVerdict::agrees;
    }
    if (!isKnown(facts->device) || !facts->isComplete) {
        return KernelVerdict::cannotTell;
    }
    return facts->stack == claimingStack ? KernelVerdict::agrees : KernelVerdict::contradicts;
}

KernelReading::KernelReading() : data(std::make_unique<const KernelReadingData>(Root::live()))
{
}

KernelReading::KernelReading(const std::string& root)
    : data(std::make_unique<const KernelReadingData>(Root::recorded(root)))
{
}

KernelReading::~KernelReading() = default;

bool KernelReading::isRead() const
{
    return data->machine.has_value();
}

const std::string& KernelReading::problem() const
{
    return data->problem;
}

KernelFacts KernelReading::ask(const std::string& path) const
{
    auto facts = std::make_shared<KernelFactsData>();
    facts->path = path;
    if (isRead()) {
        const Machine& machine = *data->machine;
        const Device* const device = machine.byPath(path);
        if (device != nullptr) {
            describe(*facts, machine, *device);
        } else {
            facts->device = withoutDevice(machine, data->isLive, path);
        }
    }
    return KernelFacts(std::move(facts));
}

std::vector<KernelFacts> KernelReading::askAll(const std::vector<std::string>& paths) const
{
    std::vector<KernelFacts> all;
    all.reserve(paths.size());
    for (const std::string& path : paths) {
        all.push_back(ask(path));
    }
    return all;
}

}  // namespace kivclaim
