#include "tools/listing/named_devices.h"

#include "tools/listing/marks.h"
#include "tools/output.h"
#include "tools/path_input.h"

using namespace kivclaim::machine;

namespace kivclaim::tools {

ExitStatus findNamedDevices(const Machine& machine, const std::vector<std::string>& paths,
                            std::vector<DeviceIndex>& devices)
{
    std::vector<bool> isNamed(machine.devices().size());
    return forEachPath(paths, [&](const std::string& path) {
        const Device* const device = machine.byPath(path);
        if (device == nullptr || device->hidden) {
            complain("'" + path + "' is no block device of this machine; 'kivclaim list --all' shows those that are");
            return failed;
        }
        const DeviceIndex index = machine.indexOf(*device);
        if (!isNamed[index]) {
            isNamed[index] = true;
            devices.push_back(index);
        }
        return answeredYes;
    });
}

void complainAboutReading(const Machine& machine)
{
    if (machine.marks() != noMark) {
        MarkText marks;
        marks.add(machine.marks());
        complain("parts of this machine could not be read (" + marks.take() + "); the table holds the rest");
    }
}

}  // namespace kivclaim::tools
