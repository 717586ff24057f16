// The devices of a machine that the user names.
#ifndef KIVCLAIM_TOOLS_LISTING_NAMED_DEVICES_H
#define KIVCLAIM_TOOLS_LISTING_NAMED_DEVICES_H

#include "machine/machine.h"
#include "tools/exit_status.h"

#include <string>
#include <vector>

namespace kivclaim::tools {

// Adds the device of each path to `devices`, each once. A path without a device is reported and skipped, and makes the
// outcome `failed`. The machine must have been read with the numbers.
ExitStatus findNamedDevices(const kivclaim::machine::Machine& machine, const std::vector<std::string>& paths,
                            std::vector<kivclaim::machine::DeviceIndex>& devices);

// Says what went wrong with the machine as a whole when it was read.
void complainAboutReading(const kivclaim::machine::Machine& machine);

}  // namespace kivclaim::tools

#endif
