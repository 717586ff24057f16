// The devices of a machine in groups that have nothing to do with each other, and the layers within each.
#ifndef KIVCLAIM_TOOLS_REPORT_STACKS_H
#define KIVCLAIM_TOOLS_REPORT_STACKS_H

#include "tools/report/reported_machine.h"

#include <cstddef>
#include <string>
#include <vector>

namespace kivclaim::tools {

// A box of the picture: a device, or the places where one is mounted.
struct StackBox {
    kivclaim::machine::DeviceIndex device;
    bool isMount = false;
    std::size_t layer = 0;
    std::size_t place = 0;           // from the top, in half rows: each layer is in the middle
    std::vector<std::size_t> below;  // places in the stack of the boxes that it is made of
};

struct DeviceStack {
    std::vector<StackBox> boxes;  // a device before its mount
    std::size_t layers = 0;
    std::size_t places = 0;  // of the fullest layer
};

// Each device with a node is in one of them. All devices that nothing is stacked on are together in the last one,
// beside each other. Circles do no harm.
std::vector<DeviceStack> stacksOf(const ReportedMachine& reported);

}  // namespace kivclaim::tools

#endif
