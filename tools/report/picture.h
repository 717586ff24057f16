// The picture of a stack of devices, as SVG.
#ifndef KIVCLAIM_TOOLS_REPORT_PICTURE_H
#define KIVCLAIM_TOOLS_REPORT_PICTURE_H

#include "tools/report/stacks.h"

#include <string>

namespace kivclaim::tools {

// Each device is a link to what has the id "dINDEX" in the page. Colors come from the page's style, by the classes
// "s-STACK", "marked" and "mount". `label` is markup.
std::string pictureOf(const ReportedMachine& reported, const DeviceStack& stack, const std::string& label);

}  // namespace kivclaim::tools

#endif
