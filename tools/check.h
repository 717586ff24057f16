// Checks of other projects' files: claim modules, hosts and host frameworks.
#ifndef KIVCLAIM_TOOLS_CHECK_H
#define KIVCLAIM_TOOLS_CHECK_H

#include "tools/exit_status.h"

#include <string>

namespace kivclaim::tools {

struct CheckOptions {
    std::string module;  // --check-module: a claim module in a file of its own
    std::string host;    // --check-host: a program, or a host framework as a library
    std::string inside;  // the same file, inside the process that the check starts: "module" or "host"
    std::string path;    // what is asked about; empty: a path that fits
    bool json = false;

    bool isWanted() const { return !module.empty() || !host.empty(); }
};

// Examines the file and prints what it found. The file's code runs in a separate process, so that a crash there is
// reported as a problem. answeredYes: no problem was found; answeredNo: some was. Throws CommandError for a file that
// cannot be examined.
ExitStatus check(const CheckOptions& options);

}  // namespace kivclaim::tools

#endif
