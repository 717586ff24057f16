#include "tools/block_devices.h"

#include "tools/exit_status.h"
#include "tools/udev_handle.h"

#include <algorithm>
#include <cstring>

namespace kivclaim::tools {

namespace {

// A device that has just gone gives an empty path.
BlockDevice deviceAt(udev& context, const char* sysfsPath)
{
    const UdevDevice device(udev_device_new_from_syspath(&context, sysfsPath));
    if (device == nullptr) {
        return {};
    }
    udev_device* const disk = diskOf(*device);
    return {nodeOf(*device), disk != nullptr ? nodeOf(*disk) : "", sysfsPath};
}

}  // namespace

std::string nodeOf(udev_device& device)
{
    const char* const mapperName = udev_device_get_sysattr_value(&device, "dm/name");
    if (mapperName != nullptr && *mapperName != '\0') {
        return std::string("/dev/mapper/") + mapperName;
    }
    const char* const node = udev_device_get_devnode(&device);
    return node != nullptr ? node : "";
}

udev_device* diskOf(udev_device& partition)
{
    return udev_device_get_parent_with_subsystem_devtype(&partition, "block", "disk");
}

std::vector<BlockDevice> blockDevices()
{
    const UdevContext context(udev_new());
    const UdevEnumeration enumeration(context != nullptr ? udev_enumerate_new(context.get()) : nullptr);
    if (enumeration == nullptr || udev_enumerate_add_match_subsystem(enumeration.get(), "block") < 0 ||
        udev_enumerate_scan_devices(enumeration.get()) < 0) {
        throw CommandError("cannot read the list of block devices; is sysfs mounted on /sys?");
    }
    std::vector<BlockDevice> devices;
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumeration.get()))
    {
        BlockDevice device = deviceAt(*context, udev_list_entry_get_name(entry));
        if (!device.path.empty()) {
            devices.push_back(std::move(device));
        }
    }
    std::sort(devices.begin(), devices.end(), [](const BlockDevice& one, const BlockDevice& other) {
        return strverscmp(one.path.c_str(), other.path.c_str()) < 0;
    });
    return devices;
}

}  // namespace kivclaim::tools
