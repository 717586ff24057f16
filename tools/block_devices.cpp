#include "tools/block_devices.h"

#include "tools/exit_status.h"

#include <libudev.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace kivclaim::tools {

namespace {

struct Unref {
    void operator()(udev* handle) const { udev_unref(handle); }
    void operator()(udev_enumerate* handle) const { udev_enumerate_unref(handle); }
    void operator()(udev_device* handle) const { udev_device_unref(handle); }
};

using Device = std::unique_ptr<udev_device, Unref>;

std::string pathOf(udev_device* device)
{
    const char* const mapperName = udev_device_get_sysattr_value(device, "dm/name");
    if (mapperName != nullptr && *mapperName != '\0') {
        return std::string("/dev/mapper/") + mapperName;
    }
    const char* const node = udev_device_get_devnode(device);
    return node != nullptr ? node : "";
}

// A device that has just gone gives an empty path.
BlockDevice deviceAt(udev& context, const char* sysfsPath)
{
    const Device device(udev_device_new_from_syspath(&context, sysfsPath));
    if (device == nullptr) {
        return {};
    }
    // Belongs to `device`, and is no partition's when it is no disk.
    udev_device* const disk = udev_device_get_parent_with_subsystem_devtype(device.get(), "block", "disk");
    return {pathOf(device.get()), disk != nullptr ? pathOf(disk) : ""};
}

}  // namespace

std::vector<BlockDevice> blockDevices()
{
    const std::unique_ptr<udev, Unref> context(udev_new());
    const std::unique_ptr<udev_enumerate, Unref> enumeration(context != nullptr ? udev_enumerate_new(context.get())
                                                                                : nullptr);
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
