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

// A device that has just gone gives an empty path.
std::string pathOf(udev& context, const char* sysfsPath)
{
    const std::unique_ptr<udev_device, Unref> device(udev_device_new_from_syspath(&context, sysfsPath));
    if (device == nullptr) {
        return {};
    }
    const char* const mapperName = udev_device_get_sysattr_value(device.get(), "dm/name");
    if (mapperName != nullptr && *mapperName != '\0') {
        return std::string("/dev/mapper/") + mapperName;
    }
    const char* const node = udev_device_get_devnode(device.get());
    return node != nullptr ? node : "";
}

}  // namespace

std::vector<std::string> blockDevicePaths()
{
    const std::unique_ptr<udev, Unref> context(udev_new());
    const std::unique_ptr<udev_enumerate, Unref> enumeration(context != nullptr ? udev_enumerate_new(context.get())
                                                                                : nullptr);
    if (enumeration == nullptr || udev_enumerate_add_match_subsystem(enumeration.get(), "block") < 0 ||
        udev_enumerate_scan_devices(enumeration.get()) < 0) {
        throw CommandError("cannot read the list of block devices; is sysfs mounted on /sys?");
    }
    std::vector<std::string> paths;
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumeration.get()))
    {
        std::string path = pathOf(*context, udev_list_entry_get_name(entry));
        if (!path.empty()) {
            paths.push_back(std::move(path));
        }
    }
    std::sort(paths.begin(), paths.end(), [](const std::string& one, const std::string& other) {
        return strverscmp(one.c_str(), other.c_str()) < 0;
    });
    return paths;
}

}  // namespace kivclaim::tools
