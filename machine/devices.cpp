// Lists the devices in sysfs and reads what is asked for about each.
#include "machine/attributes.h"
#include "machine/record.h"
#include "machine/state.h"
#include "machine/text.h"
#include "machine/transport.h"

#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace kivclaim::machine {

namespace {

constexpr std::uint64_t sectorBytes = 512;
constexpr std::uint64_t mostSectors = UINT64_MAX / sectorBytes;

// What sysfs lists, before anything was read of it.
struct Entry {
    std::string_view sysfsName;   // cciss!c0d0
    std::string_view kernelName;  // cciss/c0d0
    std::string_view disk;        // the sysfs name of the disk in whose directory it was found
    std::string_view place;       // where its link leads to: ../../devices/…/block/sda; empty when it is no link
    bool inClass = true;          // found in /sys/class/block, else in /sys/block
};

std::string_view lastName(std::string_view path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string_view withoutLastName(std::string_view path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

bool isMappingName(std::string_view kernelName)
{
    return beginsWith(kernelName, "dm-");
}

// Can have slaves. For all others the kernel makes no links.
bool isStacked(const Device& device)
{
    return isMapping(device.kind) || device.kind == Kind::raid || device.kind == Kind::disk ||
           device.kind == Kind::powerPath;
}

// Has, or can have, a directory of the hardware's driver.
bool hasHardware(const Device& device)
{
    return device.kind <= Kind::rom;
}

class Listing {
public:
    Listing(Machine::State& machine, FileReader& files) : machine(machine), files(files) {}

    // Since partitions are in /sys/class/block, too, /sys/block is for roots that hold nothing else.
    std::vector<Entry> read()
    {
        directory = machine.tree.open(Top::sys, "class/block", O_RDONLY | O_DIRECTORY);
        flat = directory.isOpen();
        if (!flat) {
            directory = machine.tree.open(Top::sys, "block", O_RDONLY | O_DIRECTORY);
        }
        if (!directory.isOpen()) {
            throw ReadError(std::string("cannot read sys/class/block (") + std::strerror(errno) + ")");
        }
        files.entries(directory.get(), machine.marks, [&](std::string_view name, unsigned char) { add(name, {}); });
        const std::size_t disks = entries.size();
        for (std::size_t i = 0; !flat && i < disks; ++i) {
            addPartitions(entries[i].sysfsName);
        }
        std::sort(entries.begin(), entries.end(), [](const Entry& one, const Entry& other) {
            return strverscmp(one.kernelName.data(), other.kernelName.data()) < 0;
        });
        for (Entry& entry : entries) {
            entry.place = placeOf(entry);
        }
        return std::move(entries);
    }

private:
    void add(std::string_view name, std::string_view disk)
    {
        Entry entry;
        entry.inClass = flat;
        entry.sysfsName = machine.texts.keep(name);
        entry.kernelName = entry.sysfsName;
        entry.disk = disk;
        if (name.find('!') != std::string_view::npos) {
            entry.kernelName = machine.texts.keep(withSlashes(name));
        }
        entries.push_back(entry);
    }

    void addPartitions(std::string_view disk)
    {
        const Descriptor its = machine.tree.open(Top::sys, "block/" + std::string(disk), O_RDONLY | O_DIRECTORY);
        if (its.isOpen()) {
            files.entries(its.get(), machine.marks, [&](std::string_view name, unsigned char) {
                if (partitionInName(disk, name) != 0) {
                    add(name, disk);
                }
            });
        }
    }

    std::string_view placeOf(const Entry& entry)
    {
        if (!entry.disk.empty()) {
            return {};
        }
        char target[PATH_MAX];
        const ssize_t length = ::readlinkat(directory.get(), entry.sysfsName.data(), target, sizeof target);
        return machine.texts.keep({target, length > 0 ? static_cast<std::size_t>(length) : 0});
    }

    Machine::State& machine;
    FileReader& files;
    Descriptor directory;
    bool flat = true;
    std::vector<Entry> entries;
};

// Reads one device.
class DeviceReader {
public:
    DeviceReader(Machine::State& machine, FileReader& files, TransportReader& transport, const Entry& entry,
                 Device& device)
        : machine(machine),
          files(files),
          transport(transport),
          entry(entry),
          device(device),
          attributes(machine.tree, files, machine.texts, placeInSysfs(entry), device.marks)
    {
    }

    void read()
    {
        device.kernelName = entry.kernelName;
        if (!isUtf8(device.kernelName)) {
            device.marks |= notUtf8;
        }
        if (isMappingName(device.kernelName)) {
            readMapping();
        } else {
            readPartition();
        }
        nameNode();
        readAddress();
        readGeneral();
        readType();
        readHardware();
        readRecord();
        if (wants(transports)) {
            device.transport = transport.of(device, entry.place);
        }
    }

    // Calls take(index) for each device in "slaves" or "holders"; false when there is no such directory.
    template <class Take>
    bool neighbours(const char* directory, Take take)
    {
        return attributes.entries(directory, [&](std::string_view name) {
            const DeviceIndex neighbour = machine.byKernelName(withSlashes(name));
            if (neighbour != noDevice) {
                take(neighbour);
            } else {
                device.marks |= unknownDevice;
            }
        });
    }

private:
    static std::string placeInSysfs(const Entry& entry)
    {
        std::string place = entry.inClass ? "class/block/" : "block/";
        if (!entry.disk.empty()) {
            place.append(entry.disk) += '/';
        }
        return place.append(entry.sysfsName);
    }

    bool wants(Facts facts) const { return (machine.facts & facts) != 0; }

    void readMapping()
    {
        device.mapName = attributes.text("dm/name");
        device.mapUuid = attributes.text("dm/uuid");
        const MapUuid uuid(device.mapUuid);
        device.kind = kindOfMapping(uuid);
        device.partition = uuid.partition;
        if (device.kind == Kind::multipathMap) {
            device.wwid = device.mapUuid.substr(device.mapUuid.find('-') + 1);
        }
    }

    // A partition's directory is in its disk's. Its number is read there only, so that other disks cost nothing.
    void readPartition()
    {
        device.kind = kindOfName(device.kernelName);
        const std::string_view above = entry.disk.empty() ? lastName(withoutLastName(entry.place)) : entry.disk;
        const DeviceIndex disk = machine.byKernelName(withSlashes(above));
        if (!above.empty() && disk == noDevice) {
            return;
        }
        std::uint64_t number = attributes.number("partition", INT32_MAX).value_or(0);
        if (number == 0 && disk != noDevice) {
            number = partitionInName(machine.devices[disk].kernelName, device.kernelName);
        }
        if (number != 0) {
            device.kind = Kind::partition;
            device.partition = static_cast<unsigned int>(number);
            device.whole = disk != noDevice ? disk : diskByName(device.partition);
        }
    }

    // Of a partition of which only the name tells.
    DeviceIndex diskByName(unsigned int number) const
    {
        const std::string digits = std::to_string(number);
        std::string_view name = device.kernelName;
        if (name.size() <= digits.size() || name.substr(name.size() - digits.size()) != digits) {
            return noDevice;
        }
        name.remove_suffix(digits.size());
        const DeviceIndex disk = machine.byKernelName(name);
        return disk != noDevice || name.back() != 'p' ? disk : machine.byKernelName(name.substr(0, name.size() - 1));
    }

    void nameNode()
    {
        device.node = device.mapName.empty() ? machine.texts.keep("/dev/", device.kernelName)
                                             : machine.texts.keep("/dev/mapper/", device.mapName);
    }

    void readAddress()
    {
        if (!hasHardware(device)) {
            return;
        }
        const std::string_view above = withoutLastName(entry.place);
        const std::string_view address = lastName(lastName(above) == "block" ? withoutLastName(above) : above);
        if (isScsiAddress(address)) {
            device.scsiAddress = machine.texts.keep(address);
        } else if (entry.place.empty()) {
            const std::string target = attributes.linkTarget("device");
            device.scsiAddress = isScsiAddress(target) ? machine.texts.keep(target) : std::string_view();
        }
    }

    void readGeneral()
    {
        if (wants(numbers)) {
            readNumber();
        } else if (device.kind == Kind::nvme) {
            device.hidden = attributes.flag("hidden");
        }
        if (wants(sizes)) {
            if (const auto sectors = attributes.number("size", mostSectors)) {
                device.bytes = *sectors * sectorBytes;
            }
        }
        if (wants(protection)) {
            device.readOnly = attributes.flag("ro");
        }
        if (wants(removability) && device.kind != Kind::partition) {
            device.removable = attributes.flag("removable");
        }
        if (wants(states)) {
            readState();
        }
    }

    void readNumber()
    {
        const std::optional<std::string_view> text = attributes.read("dev");
        if (!text) {
            device.hidden = attributes.flag("hidden");
            return;
        }
        device.number = deviceNumberIn(*text);
        if (!device.number) {
            device.marks |= outOfRange;
        }
    }

    void readState()
    {
        if (isMapping(device.kind)) {
            const auto suspended = attributes.number("dm/suspended", 1);
            device.state = !suspended ? "" : *suspended != 0 ? "suspended" : "running";
        } else if (hasHardware(device)) {
            device.state = attributes.text("device/state");
        }
    }

    void readType()
    {
        if (isMapping(device.kind)) {
            device.type = typeOfMapping();
        } else if (device.kind == Kind::raid) {
            const std::string_view level = wants(types) ? attributes.text("md/level") : std::string_view();
            device.type = level.empty() ? "md" : level;
        } else if (device.kind == Kind::partition || device.kind == Kind::loop) {
            device.type = device.kind == Kind::loop ? "loop" : "part";
        } else {
            device.type = device.kind == Kind::rom ? "rom" : "disk";
            if (const auto number = wants(types) ? attributes.number("device/type", UINT32_MAX) : std::nullopt) {
                const char* const name = scsiTypeName(*number);
                device.type = name != nullptr ? name : "disk";
            }
        }
    }

    // What the uuid of a mapping begins with tells whose it is.
    std::string_view typeOfMapping()
    {
        std::string owner(device.mapUuid.substr(0, device.mapUuid.find('-')));
        std::transform(owner.begin(), owner.end(), owner.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
        if (owner.empty()) {
            return "dm";
        }
        return beginsWith(owner, "part") ? "part" : attributes.keep(owner);
    }

    void readHardware()
    {
        if (!hasHardware(device)) {
            return;
        }
        if (wants(models)) {
            device.vendor = attributes.text("device/vendor");
            device.model = attributes.text("device/model");
            device.revision = attributes.text(device.kind == Kind::nvme ? "device/firmware_rev" : "device/rev");
        }
        if (wants(identities)) {
            device.serial =
                attributes.text(device.scsiAddress.empty() && device.kind == Kind::disk ? "serial" : "device/serial");
            readWwid();
        }
    }

    void readWwid()
    {
        const std::string wwid(attributes.read(device.kind == Kind::nvme ? "wwid" : "device/wwid").value_or(""));
        device.wwid = attributes.keep(multipathWwid(wwid));
        device.wwn = attributes.keep(wwnOf(wwid));
    }

    // What udev or the root's own files say comes before sysfs, as lsblk has it.
    void readRecord()
    {
        if (!wants(contents | models | identities)) {
            return;
        }
        const Record record = recordIn(recordText(machine.tree, files, device));
        if (wants(contents)) {
            device.fsType = attributes.keep(record.fsType);
            device.fsLabel = decoded(record.fsLabelEncoded, record.fsLabel, {});
            device.fsUuid = decoded(record.fsUuidEncoded, record.fsUuid, {});
        }
        if (wants(models) && hasHardware(device)) {
            device.model = decoded(record.modelEncoded, record.model, device.model);
        }
        if (wants(identities)) {
            takeIdentity(record);
        }
    }

    void takeIdentity(const Record& record)
    {
        for (const std::string_view wwn : {record.wwn, record.wwnWithExtension}) {
            device.wwn = wwn.empty() ? device.wwn : attributes.keep(wwn);
        }
        if (!hasHardware(device)) {
            return;
        }
        for (const std::string_view serial :
             {record.serial, record.shortSerial, record.scsiSerial, record.serialOfScsi}) {
            device.serial = serial.empty() ? device.serial : attributes.keep(serial);
        }
        if (device.wwid.empty()) {
            device.wwid = attributes.keep(record.serial);
        }
    }

    std::string_view decoded(std::string_view encoded, std::string_view plain, std::string_view otherwise)
    {
        if (encoded.empty()) {
            return plain.empty() ? otherwise : attributes.keep(plain);
        }
        return attributes.keep(trimmed(withoutHexEscapes(encoded)));
    }

    Machine::State& machine;
    FileReader& files;
    TransportReader& transport;
    const Entry& entry;
    Device& device;
    Attributes attributes;
};

using Edge = std::pair<DeviceIndex, DeviceIndex>;  // a device and its slave

// Reads all devices.
class AllDevices {
public:
    AllDevices(Machine::State& machine, FileReader& files)
        : machine(machine), files(files), transport(machine.tree, files), entries(Listing(machine, files).read())
    {
    }

    void read()
    {
        machine.devices.resize(entries.size());
        machine.kernelNames.reserve(entries.size());
        for (DeviceIndex i = 0; i < entries.size(); ++i) {
            machine.devices[i].kernelName = entries[i].kernelName;
            machine.kernelNames.emplace(entries[i].kernelName, i);
        }
        for (DeviceIndex i = 0; i < entries.size(); ++i) {
            readDevice(i);
        }
        for (DeviceIndex i = 0; holdersDecide && i < entries.size(); ++i) {
            reader(i).neighbours("holders", [&](DeviceIndex holder) { slaves.emplace_back(holder, i); });
        }
        stack(machine, std::move(slaves));
    }

private:
    DeviceReader reader(DeviceIndex i) { return {machine, files, transport, entries[i], machine.devices[i]}; }

    // The kernel makes the links to slaves and holders together, so the few directories of slaves are enough. Where a
    // recorded root lacks one, the holders' are read, too.
    void readDevice(DeviceIndex i)
    {
        DeviceReader one = reader(i);
        one.read();
        const Device& device = machine.devices[i];
        if ((machine.facts & stacking) != 0 && isStacked(device)) {
            const bool found = one.neighbours("slaves", [&](DeviceIndex slave) { slaves.emplace_back(i, slave); });
            holdersDecide = holdersDecide || (!found && (isMapping(device.kind) || device.kind == Kind::raid));
        }
    }

    Machine::State& machine;
    FileReader& files;
    TransportReader transport;
    std::vector<Entry> entries;
    std::vector<Edge> slaves;
    bool holdersDecide = false;
};

}  // namespace

void readDevices(Machine::State& machine, FileReader& files)
{
    AllDevices(machine, files).read();
}

}  // namespace kivclaim::machine
