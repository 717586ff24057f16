// The outcome of an audit for a monitoring system.
#ifndef KIVCLAIM_TOOLS_AUDIT_METRICS_H
#define KIVCLAIM_TOOLS_AUDIT_METRICS_H

#include "tools/audit/audited_device.h"

#include <string>
#include <vector>

namespace kivclaim::tools {

// In the text format of OpenMetrics, whole. Devices are named only where an answer differs for no known reason, so that
// a large machine has few time series.
std::string metricsOf(const std::vector<AuditedDevice>& devices);

}  // namespace kivclaim::tools

#endif
