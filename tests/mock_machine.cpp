#include "tests/mock_machine.h"

#include <algorithm>
#include <utility>

namespace tests {

namespace {

constexpr char virtualFolder[] = "/devices/virtual/block/";

// sysfs writes the slash in the name of a node as an exclamation mark.
std::string nodeNamed(std::string kernelName)
{
    std::replace(kernelName.begin(), kernelName.end(), '!', '/');
    return kernelName;
}

// A relative link from a folder below `place` to `target`.
std::string link(const std::string& place, const std::string& target)
{
    std::string up = "..";
    for (const char character : place) {
        up += character == '/' ? "/.." : "";
    }
    return up + target;
}

}  // namespace

MockMachine::Device& MockMachine::add(const std::string& kernelName, const std::string& place, const std::string& node)
{
    const int minor = static_cast<int>(devices.size());
    Device& device = devices[kernelName];
    device.place = place + kernelName;
    device.node = node;
    device.minor = minor;
    return device;
}

MockMachine& MockMachine::disk(const std::string& name)
{
    add(name, virtualFolder, nodeNamed(name));
    return *this;
}

MockMachine& MockMachine::partition(const std::string& diskName, const std::string& name, unsigned int number)
{
    Device& device = add(name, devices.at(diskName).place + "/", nodeNamed(name));
    device.type = "partition";
    device.lines = "A: partition=" + std::to_string(number) + "\n";
    return *this;
}

void MockMachine::hold(const std::string& slave, const std::string& holder)
{
    Device& below = devices.at(slave);
    Device& above = devices.at(holder);
    below.lines += "L: holders/" + holder + "=" + link(below.place, above.place) + "\n";
    above.lines += "L: slaves/" + slave + "=" + link(above.place, below.place) + "\n";
}

MockMachine& MockMachine::mapped(const std::string& kernelName, const std::string& name, const std::string& uuid,
                                 const std::vector<std::string>& slaves)
{
    add(kernelName, virtualFolder, "mapper/" + name).lines = "A: dm/name=" + name + "\nA: dm/uuid=" + uuid + "\n";
    for (const std::string& slave : slaves) {
        hold(slave, kernelName);
    }
    return *this;
}

MockMachine& MockMachine::mappedWithoutName(const std::string& kernelName, const std::string& name,
                                            const std::string& uuid)
{
    mapped(kernelName, name, uuid);
    devices.at(kernelName).node = kernelName;
    return *this;
}

MockMachine& MockMachine::node(const std::string& name, const std::string& kernelName)
{
    devices.at(kernelName).otherNodes.push_back(name);
    return *this;
}

// Empty when there are none. umockdev gives each device one node; a block device's is a file with the sticky bit, and a
// link tells its number.
std::string MockMachine::makeOtherNodes() const
{
    const std::string root = "\"$UMOCKDEV_DIR/dev/";
    std::string script;
    for (const auto& [kernelName, device] : devices) {
        for (const std::string& name : device.otherNodes) {
            std::string linkName = name;
            std::replace(linkName.begin(), linkName.end(), '/', '_');
            script += "touch " + root + name + "\"\nchmod 1644 " + root + name + "\"\nln -s " + number(device) + " " +
                      root + ".node/" + linkName + "\"\n";
        }
    }
    return script.empty() ? "" : "set -e\nmkdir -p " + root + "mapper\"\n" + script + "exec \"$@\"\n";
}

std::string MockMachine::number(const Device& device)
{
    return "240:" + std::to_string(device.minor);
}

std::string MockMachine::description() const
{
    std::string text;
    // Disks stand before their partitions, as umockdev wants them: a name sorts before a longer one.
    for (const auto& [kernelName, device] : devices) {
        const std::string minor = std::to_string(device.minor);
        text += "P: " + device.place + "\nN: " + device.node + "\nE: DEVNAME=/dev/" + device.node +
                "\nE: DEVTYPE=" + device.type + "\nE: SUBSYSTEM=block\nE: MAJOR=240\nE: MINOR=" + minor +
                "\nA: dev=" + number(device) + "\n" + device.lines + "\n";
    }
    return text;
}

Process MockMachine::process(const std::string& program, std::vector<std::string> arguments) const
{
    folder.addFile("devices", description());
    arguments.insert(arguments.begin(), program);
    const std::string script = makeOtherNodes();
    if (!script.empty()) {
        arguments.insert(arguments.begin(), {"/bin/sh", "-c", script, "sh"});
    }
    arguments.insert(arguments.begin(), {"-d", folder.path() + "/devices", "--"});
    return {"umockdev-run", std::move(arguments)};
}

}  // namespace tests
