#include "machine/machine.h"

#include "machine/state.h"
#include "machine/text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace kivclaim::machine {

namespace {

std::uint64_t key(DeviceNumber number)
{
    return std::uint64_t{number.major} << 32U | number.minor;
}

DeviceNumber numberOf(const struct stat& node)
{
    return {static_cast<std::uint32_t>(major(node.st_rdev)), static_cast<std::uint32_t>(minor(node.st_rdev))};
}

DeviceIndex atNode(const Machine::State& machine, const struct stat& node)
{
    return S_ISBLK(node.st_mode) ? machine.byNumber(numberOf(node)) : noDevice;
}

void index(Machine::State& machine)
{
    for (DeviceIndex i = 0; i < machine.devices.size(); ++i) {
        const Device& device = machine.devices[i];
        if (!device.mapName.empty()) {
            machine.mapNames.emplace(device.mapName, i);
        }
        if (device.number) {
            machine.deviceNumbers.emplace(key(*device.number), i);
        }
    }
}

}  // namespace

DeviceIndex Machine::State::byNumber(DeviceNumber number) const
{
    const auto found = deviceNumbers.find(key(number));
    return found != deviceNumbers.end() ? found->second : noDevice;
}

DeviceIndex Machine::State::byNode(std::string_view path) const
{
    constexpr std::string_view mapper("/dev/mapper/");
    constexpr std::string_view dev("/dev/");
    if (beginsWith(path, mapper)) {
        const DeviceIndex map = byMapName(path.substr(mapper.size()));
        if (map != noDevice) {
            return map;
        }
    }
    return beginsWith(path, dev) ? byKernelName(path.substr(dev.size())) : noDevice;
}

FoundFile Machine::State::lookUp(const std::string& path) const
{
    FoundFile found;
    if (tree.isLive()) {
        found.isThere = ::stat(path.c_str(), &found.status) == 0;
        found.device = found.isThere ? atNode(*this, found.status) : noDevice;
        return found;
    }
    // An empty path names nothing.
    const Destination destination = path.empty() ? Destination() : tree.follow(path);
    found.isThere = !path.empty() && statusOf(destination, found.status);
    found.device = found.isThere ? atNode(*this, found.status) : noDevice;
    if (found.device == noDevice && !destination.circle && !nodes) {
        found.device = byNode(destination.path);
    }
    return found;
}

bool Machine::State::statusOf(const Destination& destination, struct stat& status) const
{
    const Node* const node = nodes ? nodes->at(destination.path) : nullptr;
    if (node != nullptr) {
        status = {};
        status.st_mode = node->number ? S_IFBLK : S_IFCHR;
        status.st_rdev = node->number ? makedev(node->number->major, node->number->minor) : 0;
        return true;
    }
    const bool isFile = destination.file.isOpen() && ::fstat(destination.file.get(), &status) == 0;
    // The file in the place of a node contains only its udev properties.
    return isFile && (!nodes || S_ISDIR(status.st_mode) || !beginsWith(destination.path, "/dev/"));
}

Machine::Machine(std::unique_ptr<State> state) : state(std::move(state))
{
}
Machine::~Machine() = default;
Machine::Machine(Machine&& other) noexcept = default;
Machine& Machine::operator=(Machine&& other) noexcept = default;

void readMachine(Machine::State& machine, Facts facts)
{
    // A mount names its device by number, and so does udev's database.
    const Facts byNumber = facts & (mounts | contents | models | identities);
    machine.facts = facts | (byNumber != 0 ? Facts{numbers} : Facts{basicFacts});
    FileReader files;
    readDevices(machine, files);
    index(machine);
    if ((facts & links) != 0) {
        readLinks(machine, files);
    }
    if ((facts & mounts) != 0) {
        readMounts(machine, files);
    }
}

Machine Machine::read(const Root& root, Facts facts)
{
    auto state = std::make_unique<State>(root);
    try {
        readMachine(*state, facts);
    } catch (const ReadError& error) {
        throw ReadError(std::string(error.what()) + " below " + root.name());
    }
    return Machine(std::move(state));
}

const std::vector<Device>& Machine::devices() const
{
    return state->devices;
}

DeviceIndex Machine::indexOf(const Device& device) const
{
    return static_cast<DeviceIndex>(&device - state->devices.data());
}

Marks Machine::marks() const
{
    return state->marks;
}

static const Device* deviceAt(const std::vector<Device>& devices, DeviceIndex place)
{
    return place < devices.size() ? &devices[place] : nullptr;
}

const Device* Machine::byKernelName(std::string_view name) const
{
    return deviceAt(state->devices, state->byKernelName(withSlashes(name)));
}

const Device* Machine::byMapName(std::string_view name) const
{
    return deviceAt(state->devices, state->byMapName(name));
}

const Device* Machine::byNumber(DeviceNumber number) const
{
    return deviceAt(state->devices, state->byNumber(number));
}

const Device* Machine::byPath(const std::string& path) const
{
    return deviceAt(state->devices, state->byPath(path));
}

std::optional<DeviceNumber> Machine::numberAt(const std::string& path) const
{
    const FoundFile found = state->lookUp(path);
    if (found.isThere && S_ISBLK(found.status.st_mode)) {
        return numberOf(found.status);
    }
    const Device* const device = deviceAt(state->devices, found.device);
    return device != nullptr ? device->number : std::nullopt;
}

bool Machine::isAnythingAt(const std::string& path) const
{
    const FoundFile found = state->lookUp(path);
    return found.isThere || found.device != noDevice;
}

bool Machine::canBeOpened(const std::string& path) const
{
    const Node* const node = state->nodes ? state->nodes->at(state->tree.follow(path).path) : nullptr;
    return node != nullptr ? node->isReadable : isAnythingAt(path);
}

bool Machine::isStillThere(const Device& device) const
{
    if (!state->tree.isLive()) {
        return true;
    }
    std::string name(device.kernelName);
    std::replace(name.begin(), name.end(), '/', '!');
    const Descriptor file = state->tree.open(Top::sys, "class/block/" + name + "/dev", O_RDONLY);
    FileReader files;
    Marks ignored = noMark;
    const auto number =
        file.isOpen() ? deviceNumberIn(trimmed(files.content(file.get(), longestAttribute, ignored))) : std::nullopt;
    return number && (!device.number || *number == *device.number);
}

const Device& Machine::wholeOf(const Device& device) const
{
    return device.whole != noDevice ? state->devices[device.whole] : device;
}

const Device* Machine::mapOf(const Device& device) const
{
    for (const DeviceIndex holder : wholeOf(device).holders) {
        if (state->devices[holder].kind == Kind::multipathMap) {
            return &state->devices[holder];
        }
    }
    return nullptr;
}

std::vector<const Device*> Machine::pathsOf(const Device& map) const
{
    std::vector<const Device*> paths;
    if (map.kind == Kind::multipathMap) {
        for (const DeviceIndex slave : map.slaves) {
            paths.push_back(&state->devices[slave]);
        }
    }
    return paths;
}

}  // namespace kivclaim::machine
