// The table of `kivclaim audit` as texts, for the report.
#ifndef KIVCLAIM_TOOLS_AUDIT_AUDIT_TABLE_H
#define KIVCLAIM_TOOLS_AUDIT_AUDIT_TABLE_H

#include "tools/commands.h"

#include <array>
#include <string>
#include <vector>

namespace kivclaim::tools {

constexpr std::array<const char*, 7> auditColumns = {"DEVICE",  "QUESTION", "LIBRARY", "KERNEL",
                                                     "VERDICT", "QUIRK",    "REASON"};
// A text for each column; untrusted, like the devices' names.
using AuditRow = std::array<std::string, auditColumns.size()>;

struct AuditTable {
    std::vector<AuditRow> rows;
    std::string summary;  // one sentence
};

// Audits as the command does, and says nothing on standard error. Throws CommandError.
AuditTable auditTable(const SessionOptions& options, const AuditOptions& request);

}  // namespace kivclaim::tools

#endif
