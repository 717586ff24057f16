// The block devices of this machine, as the kernel lists them.
#ifndef KIVCLAIM_TOOLS_BLOCK_DEVICES_H
#define KIVCLAIM_TOOLS_BLOCK_DEVICES_H

#include <string>
#include <vector>

struct udev_device;

namespace kivclaim::tools {

struct BlockDevice {
    std::string path;         // its node under /dev, and under /dev/mapper for device-mapper devices
    std::string wholeDevice;  // for a partition that the kernel made: the path of the disk it lies on; otherwise empty
    std::string sysfsPath;    // where the kernel tells about it
};

// Every block device, in the order in which people count: sda9 before sda10. Throws CommandError when the kernel's list
// cannot be read.
std::vector<BlockDevice> blockDevices();

// The node of a block device, under /dev/mapper for device-mapper devices; empty when it has none.
std::string nodeOf(udev_device& device);

// The disk that a partition made by the kernel lies on, owned by `partition`; null for any other device.
udev_device* diskOf(udev_device& partition);

}  // namespace kivclaim::tools

#endif
