// The block devices of this machine, as the kernel lists them.
#ifndef KIVCLAIM_TOOLS_BLOCK_DEVICES_H
#define KIVCLAIM_TOOLS_BLOCK_DEVICES_H

#include <string>
#include <vector>

namespace kivclaim::tools {

// The path of every block device: its node under /dev, and under /dev/mapper for device-mapper devices. In the order
// in which people count: sda9 before sda10. Throws CommandError when the kernel's list cannot be read.
std::vector<std::string> blockDevicePaths();

}  // namespace kivclaim::tools

#endif
