#include "tools/kernel_device.h"

#include "tools/block_devices.h"
#include "tools/exit_status.h"
#include "tools/stack_table.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

namespace kivclaim::tools {

namespace {

std::string attribute(udev_device& device, const char* name)
{
    const char* const value = udev_device_get_sysattr_value(&device, name);
    return value != nullptr ? value : "";
}

bool beginsWith(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

// 0 for a text that is no number.
unsigned int numberIn(std::string_view text)
{
    unsigned int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

std::vector<std::string> entriesOf(const std::string& folder)
{
    std::vector<std::string> names;
    struct Close {
        void operator()(DIR* directory) const { closedir(directory); }
    };
    const std::unique_ptr<DIR, Close> directory(opendir(folder.c_str()));
    while (const dirent* const entry = directory != nullptr ? readdir(directory.get()) : nullptr) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    return names;
}

// The parts of a device-mapper uuid such as part3-mpath-36001…: kpartx puts the number of a partition in front.
struct MappingUuid {
    explicit MappingUuid(std::string_view uuid) : origin(uuid)
    {
        const std::size_t dash = uuid.find('-');
        if (beginsWith(uuid, "part") && dash != std::string_view::npos) {
            partition = numberIn(uuid.substr(4, dash - 4));
            origin = partition != 0 ? uuid.substr(dash + 1) : uuid;
        }
    }

    std::string_view origin;
    unsigned int partition = 0;
};

KernelKind kindOfMapping(const MappingUuid& uuid)
{
    if (beginsWith(uuid.origin, "mpath-")) {
        return KernelKind::multipathMap;
    }
    // A partition inside a volume is a mapping like any other.
    return beginsWith(uuid.origin, "LVM-") && uuid.partition == 0 ? KernelKind::logicalVolume
                                                                  : KernelKind::otherMapping;
}

KernelKind kindOfName(std::string_view kernelName)
{
    const auto named = [&](std::string_view driver) {
        return beginsWith(kernelName, driver) && kernelName.size() > driver.size() &&
               std::islower(static_cast<unsigned char>(kernelName[driver.size()])) != 0;
    };
    if (named("sd")) {
        return KernelKind::scsiDisk;
    }
    return named("emcpower") ? KernelKind::powerPath : KernelKind::other;
}

// Reads one device; knows its neighbours in sysfs.
class Reader {
public:
    Reader(udev& context, udev_device& device)
        : context(context), device(device), folder(udev_device_get_syspath(&device))
    {
    }

    KernelDevice read() const
    {
        KernelDevice result;
        result.number = udev_device_get_devnum(&device);
        result.path = nodeOf(device);
        result.uuid = attribute(device, "dm/uuid");
        const bool mapping = !attribute(device, "dm/name").empty();
        if (mapping) {
            readMapping(result);
        } else {
            readDisk(result);
        }
        std::sort(result.partitions.begin(), result.partitions.end(),
                  [](const KernelPartition& one, const KernelPartition& other) { return one.number < other.number; });
        return result;
    }

private:
    UdevDevice named(const std::string& kernelName) const
    {
        return UdevDevice(udev_device_new_from_subsystem_sysname(&context, "block", kernelName.c_str()));
    }

    void readMapping(KernelDevice& result) const
    {
        const MappingUuid uuid(result.uuid);
        result.kind = kindOfMapping(uuid);
        result.partition = uuid.partition;
        if (result.partition != 0) {
            result.wholeDevice = wholeBelow(folder, uuid.origin);
        } else {
            addPartitionsAbove(folder, result.uuid, result.partitions);
        }
    }

    // The whole device of a partition is what it is mapped onto, except that kpartx maps logical partitions onto the
    // extended one.
    std::string wholeBelow(const std::string& partitionFolder, std::string_view origin) const
    {
        for (const std::string& slave : entriesOf(partitionFolder + "/slaves")) {
            const UdevDevice below = named(slave);
            const std::string itsUuid = below != nullptr ? attribute(*below, "dm/uuid") : "";
            const MappingUuid uuid(itsUuid);
            if (uuid.partition != 0 && uuid.origin == origin) {
                return wholeBelow(udev_device_get_syspath(below.get()), origin);
            }
            return below != nullptr ? nodeOf(*below) : "";
        }
        return "";
    }

    // What `origin` names is all that the uuid of a partition tells about its whole device, which may have none.
    void addPartitionsAbove(const std::string& mappingFolder, std::string_view origin,
                            std::vector<KernelPartition>& partitions) const
    {
        for (const std::string& holder : entriesOf(mappingFolder + "/holders")) {
            const UdevDevice above = named(holder);
            const std::string itsUuid = above != nullptr ? attribute(*above, "dm/uuid") : "";
            const MappingUuid uuid(itsUuid);
            if (uuid.partition != 0 && (origin.empty() || uuid.origin == origin)) {
                partitions.push_back({uuid.partition, nodeOf(*above)});
                addPartitionsAbove(udev_device_get_syspath(above.get()), uuid.origin, partitions);
            }
        }
    }

    void readDisk(KernelDevice& result) const
    {
        result.kind = kindOfName(udev_device_get_sysname(&device));
        result.partition = numberIn(attribute(device, "partition"));
        udev_device* const disk = result.partition != 0 ? diskOf(device) : nullptr;
        if (disk != nullptr) {
            result.wholeDevice = nodeOf(*disk);
            result.map = mapHolding(udev_device_get_syspath(disk));
            return;
        }
        result.map = mapHolding(folder);
        // As it stands in sysfs; libudev makes a slash of the exclamation mark in cciss!c0d0.
        const std::string diskName = folder.substr(folder.rfind('/') + 1);
        for (const std::string& name : entriesOf(folder)) {
            const UdevDevice child(beginsWith(name, diskName)
                                       ? udev_device_new_from_syspath(&context, (folder + "/" + name).c_str())
                                       : nullptr);
            const unsigned int number = child != nullptr ? numberIn(attribute(*child, "partition")) : 0;
            if (number != 0) {
                result.partitions.push_back({number, nodeOf(*child)});
            }
        }
    }

    std::string mapHolding(const std::string& diskFolder) const
    {
        for (const std::string& holder : entriesOf(diskFolder + "/holders")) {
            const UdevDevice other = named(holder);
            if (other != nullptr && beginsWith(attribute(*other, "dm/uuid"), "mpath-")) {
                return nodeOf(*other);
            }
        }
        return "";
    }

    udev& context;
    udev_device& device;
    std::string folder;
};

// "CRYPT" of CRYPT-LUKS2-…
std::string mapperSubsystem(const std::string& uuid)
{
    return uuid.empty() ? "without uuid" : uuid.substr(0, uuid.find('-'));
}

std::string descriptionOfWhole(const KernelDevice& device)
{
    switch (device.kind) {
        case KernelKind::absent:
            return "no such device";
        case KernelKind::noBlockDevice:
            return "no block device";
        case KernelKind::multipathMap:
            return "multipath map";
        case KernelKind::logicalVolume:
            return "logical volume";
        case KernelKind::otherMapping:
            return "device-mapper device, " + mapperSubsystem(device.uuid);
        case KernelKind::scsiDisk:
            return "SCSI disk";
        case KernelKind::powerPath:
            return "PowerPath device";
        case KernelKind::other:
            break;
    }
    return "block device of no stack";
}

}  // namespace

std::string kernelStack(const KernelDevice& device)
{
    switch (device.kind) {
        case KernelKind::multipathMap:
            return deviceMapperStack.name;
        case KernelKind::scsiDisk:
            // A path of a map is used through that map only.
            return device.map.empty() ? nativeStack.name : noStack;
        case KernelKind::powerPath:
            return powerPathStack.name;
        default:
            return noStack;
    }
}

std::string description(const KernelDevice& device)
{
    const std::string path = device.map.empty() ? "" : ", path of " + device.map;
    if (device.partition != 0) {
        return "partition " + std::to_string(device.partition) + " of " + device.wholeDevice + path;
    }
    return descriptionOfWhole(device) + path;
}

std::string numberText(dev_t number)
{
    return std::to_string(major(number)) + ":" + std::to_string(minor(number));
}

Kernel::Kernel() : context(udev_new())
{
    if (context == nullptr) {
        throw CommandError("cannot use libudev; is sysfs mounted on /sys?");
    }
}

KernelDevice Kernel::deviceAt(const std::string& sysfsPath) const
{
    const UdevDevice device(udev_device_new_from_syspath(context.get(), sysfsPath.c_str()));
    return device != nullptr ? Reader(*context, *device).read() : KernelDevice();
}

KernelDevice Kernel::deviceBehind(const std::string& path) const
{
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return {};
    }
    if (!S_ISBLK(status.st_mode)) {
        KernelDevice result;
        result.kind = KernelKind::noBlockDevice;
        return result;
    }
    const UdevDevice device(udev_device_new_from_devnum(context.get(), 'b', status.st_rdev));
    return device != nullptr ? Reader(*context, *device).read() : KernelDevice();
}

}  // namespace kivclaim::tools
