// Where the devices are mounted or used as swap, as procfs tells.
#include "machine/state.h"
#include "machine/text.h"

#include <fcntl.h>

#include <string>

namespace kivclaim::machine {

namespace {

using Mounts = std::vector<std::pair<DeviceIndex, std::string_view>>;

// File systems on several devices, such as btrfs, have a number of no device: their source tells one.
DeviceIndex mounted(const Machine::State& machine, DeviceNumber number, std::string_view source)
{
    const DeviceIndex device = machine.byNumber(number);
    return device != noDevice || !beginsWith(source, "/dev/") ? device : machine.byPath(withoutOctalEscapes(source));
}

// "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw"
void readMount(Machine::State& machine, std::string_view line, Mounts& found)
{
    std::string_view rest = line;
    takeUntil(rest, ' ');
    takeUntil(rest, ' ');
    const std::optional<DeviceNumber> number = deviceNumberIn(takeUntil(rest, ' '));
    takeUntil(rest, ' ');
    const std::string place = withoutOctalEscapes(takeUntil(rest, ' '));
    const std::size_t separator = rest.find(" - ");
    if (!number || place.empty() || separator == std::string_view::npos) {
        machine.marks |= line.empty() ? noMark : outOfRange;
        return;
    }
    rest.remove_prefix(separator + 3);
    takeUntil(rest, ' ');
    const DeviceIndex device = mounted(machine, *number, takeUntil(rest, ' '));
    if (device != noDevice) {
        machine.devices[device].marks |= isUtf8(place) ? noMark : notUtf8;
        found.emplace_back(device, machine.texts.keep(place));
    }
}

// "/dev/dm-1 partition 1048572 0 -2", with blanks or tabs between.
void readSwap(const Machine::State& machine, std::string_view line, Mounts& found)
{
    const std::string_view name = line.substr(0, line.find_first_of(" \t"));
    const DeviceIndex device = beginsWith(name, "/dev/") ? machine.byPath(withoutOctalEscapes(name)) : noDevice;
    if (device != noDevice) {
        found.emplace_back(device, "[SWAP]");
    }
}

template <class Take>
void forEachLine(Machine::State& machine, FileReader& files, const char* name, Take take)
{
    const Descriptor file = machine.tree.open(Top::proc, name, O_RDONLY);
    if (!file.isOpen()) {
        return;
    }
    for (std::string_view text = files.content(file.get(), longestFile, machine.marks); !text.empty();) {
        take(takeUntil(text, '\n'));
    }
}

}  // namespace

void readMounts(Machine::State& machine, FileReader& files)
{
    Mounts found;
    forEachLine(machine, files, "self/mountinfo", [&](std::string_view line) { readMount(machine, line, found); });
    forEachLine(machine, files, "swaps", [&](std::string_view line) { readSwap(machine, line, found); });
    deal(machine.texts, machine.devices, found, &Device::mountPoints);
}

}  // namespace kivclaim::machine
