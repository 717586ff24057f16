// The table of LUNs: one row for each, however many paths and maps it has.
#ifndef KIVCLAIM_TOOLS_LISTING_LUNS_H
#define KIVCLAIM_TOOLS_LISTING_LUNS_H

#include "tools/commands.h"

namespace kivclaim::tools {

// SCSI disks, NVMe namespaces, multipath maps and PowerPath devices with the same WWID are one LUN; each one without a
// WWID is a LUN of its own.
ExitStatus listLuns(const SessionOptions& session, const ListOptions& options);

// What kivclaim's help says of the columns.
std::string lunColumnNames();

}  // namespace kivclaim::tools

#endif
