// The claim manager that the command asks, with the trace log that the user asked for.
#ifndef KIVCLAIM_TOOLS_SESSION_H
#define KIVCLAIM_TOOLS_SESSION_H

#include "claim/kiv_claim_manager.h"
#include "host/trace_log.h"

#include <optional>
#include <string>
#include <vector>

namespace kivclaim::tools {

// What --trace and --trace-file say.
struct TraceOptions {
    std::optional<int> level;  // show the records up to this level on standard error
    std::string file;          // keep them in this file; all of them when no level is given

    // The destinations that were asked for; none without the options. Throws CommandError for an unwritable file.
    std::vector<kivclaim::host::TraceDestination> destinations() const;
};

// A new manager that traces to `destinations`; without any, no log is registered and tracing costs nothing.
class Session {
public:
    explicit Session(const std::vector<kivclaim::host::TraceDestination>& destinations)
    {
        if (!destinations.empty()) {
            manager.registerTraceLog(kivclaim::host::makeTraceLog(destinations));
        }
    }

    CKivClaimManager manager;
};

}  // namespace kivclaim::tools

#endif
