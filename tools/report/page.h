// The page of a report.
#ifndef KIVCLAIM_TOOLS_REPORT_PAGE_H
#define KIVCLAIM_TOOLS_REPORT_PAGE_H

#include "tools/report/reported_machine.h"

#include <string>

namespace kivclaim::tools {

// One HTML document that needs nothing else and may load nothing. All of it can be read without its script, which adds
// sorting, filters and a panel with the details of a device.
std::string pageOf(const ReportedMachine& reported);

}  // namespace kivclaim::tools

#endif
