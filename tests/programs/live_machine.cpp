// Prints the machine that it runs on, one line for each device, then for each argument what device the path names.
#include "machine/machine.h"

#include <cstdio>
#include <exception>
#include <string>

using namespace kivclaim::machine;

namespace {

std::string text(std::string_view known)
{
    return known.empty() ? "-" : std::string(known);
}

void print(const Machine& machine, const Device& device)
{
    const DeviceNumber number = device.number.value_or(DeviceNumber());
    std::string line = text(device.kernelName) + " " + text(device.node) + " " + std::to_string(number.major) + ":" +
                       std::to_string(number.minor) + " " + text(device.type);
    if (device.partition != 0) {
        line += " partition=" + std::to_string(device.partition) + " whole=" + text(machine.wholeOf(device).kernelName);
    }
    for (const DeviceIndex slave : device.slaves) {
        line += " slave=" + text(machine.devices()[slave].kernelName);
    }
    for (const std::string_view link : device.links) {
        line += " link=" + std::string(link);
    }
    line += device.marks != noMark ? " marks=" + std::to_string(device.marks) : "";
    std::puts(line.c_str());
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    try {
        const Machine machine = Machine::read(Root::live(), allFacts);
        for (const Device& device : machine.devices()) {
            print(machine, device);
        }
        for (int i = 1; i < argumentCount; ++i) {
            const Device* const device = machine.byPath(arguments[i]);
            std::printf("%s: %s\n", arguments[i], device != nullptr ? text(device->kernelName).c_str() : "none");
        }
        return 0;
    } catch (const std::exception& error) {
        std::puts(error.what());
        return 2;
    }
}
