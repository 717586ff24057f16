// What a report says about a machine: the answers of `list`, `list --luns` and `audit`, taken once.
#ifndef KIVCLAIM_TOOLS_REPORT_REPORTED_MACHINE_H
#define KIVCLAIM_TOOLS_REPORT_REPORTED_MACHINE_H

#include "machine/machine.h"
#include "tools/audit/audit_table.h"
#include "tools/listing/asked_device.h"
#include "tools/listing/luns.h"
#include "tools/session.h"

#include <map>
#include <string>
#include <vector>

namespace kivclaim::tools {

// Where the facts come from.
struct Origin {
    std::string host;    // the machine's name, or that of what was given as --sysroot
    std::string source;  // "this machine", or the recording
    std::string time;    // of the recording, or of the report on this machine
    bool isRedacted = false;
    std::map<std::string, std::string> versions;  // of kivclaim, the kernel and tools
};

// A value that owns all that it holds; indexes are those of `machine`. Threads: any, for reading.
struct ReportedMachine {
    kivclaim::machine::Machine machine;
    std::vector<kivclaim::machine::DeviceIndex> devices;  // those with a node, in the order of their paths
    std::vector<DeviceAnswer> answers;                    // by DeviceIndex
    LunRows luns;
    AuditTable audit;
    Origin origin;
    std::vector<Doubt> doubts;
};

// Throws CommandError and machine::ReadError.
ReportedMachine reportedMachine(const SessionOptions& options);

}  // namespace kivclaim::tools

#endif
