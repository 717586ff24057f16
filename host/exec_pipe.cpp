// The command runner as the framework shows it: traces, remembers failures and gives snapshots again; the run itself
// is runCommand's.
#include "framework/cfiexecpipe.h"

#include "host/cancellation_hold.h"
#include "host/printable_text.h"
#include "host/runner/command_run.h"
#include "host/runner/snapshot_place.h"

#include <algorithm>

using kivclaim::host::printableText;
using kivclaim::host_internal::CommandResult;
using kivclaim::host_internal::RunLimits;
using kivclaim::host_internal::SnapshotPlace;

namespace ztfi_pdk_4_4 {

namespace {

// The clock ends after three hundred years; a limit beyond thirty is as good as none.
RunLimits limitsFor(unsigned long timeoutSeconds)
{
    constexpr unsigned long longestSeconds = 1000UL * 1000 * 1000;
    RunLimits limits;
    if (timeoutSeconds <= longestSeconds) {
        limits.wholeRun = std::chrono::seconds(timeoutSeconds);
    }
    return limits;
}

CommandResult runAndFill(SnapshotPlace& place, const std::string& command, unsigned long timeoutSeconds)
{
    place.lines.clear();
    place.result = runCommand(command, limitsFor(timeoutSeconds), place.lines);
    place.isFilled = true;
    return place.result;
}

// Runs the command, or gives again what its place remembers; `place` is null for a command that none remembers.
CommandResult obtain(SnapshotPlace* place, const std::string& command, unsigned long timeoutSeconds,
                     std::vector<std::string>& output)
{
    if (place == nullptr) {
        return runCommand(command, limitsFor(timeoutSeconds), output);
    }
    CommandResult result = place->isFilled ? place->result : runAndFill(*place, command, timeoutSeconds);
    output.insert(output.end(), place->lines.begin(), place->lines.end());
    return result;
}

void traceEnd(CFiTraceLog& log, const std::string& command, const CommandResult& result)
{
    log.trace(ZTFI_TRACE_LEVEL_DETAIL, "Finished [%s]: result %d, wait status %lld", printableText(command).c_str(),
              result.result, static_cast<long long>(result.failure.waitStatus));
    if (result.result != 0) {
        // A NUL byte of the tool's would end the record before its time.
        std::string message = result.failure.message;
        std::replace(message.begin(), message.end(), '\0', ' ');
        log.trace(ZTFI_TRACE_LEVEL_WARNING, "%s", message.c_str());
    }
}

}  // namespace

// The number would select the way of running; there is only one.
CFiExecPipePosix::CFiExecPipePosix(int)
{
}

int CFiExecPipeBase::Exec(std::string command, std::vector<std::string>& output, std::string,
                          unsigned long timeoutSeconds, std::string, std::string, std::string)
{
    const kivclaim::host_internal::CancellationHold hold;
    CFiTraceLog* const log = traceLog.get();
    SnapshotPlace* const place = kivclaim::host_internal::snapshotPlaceOf(command);
    const bool isGivenAgain = place != nullptr && place->isFilled;
    if (log != nullptr) {
        log->trace(ZTFI_TRACE_LEVEL_DETAIL, isGivenAgain ? "Giving again what was remembered of [%s]" : "Running [%s]",
                   printableText(command).c_str());
    }
    const CommandResult result = obtain(place, command, timeoutSeconds, output);
    if (result.result != 0) {
        lastFailure = result.failure;
    }
    if (log != nullptr && !isGivenAgain) {
        traceEnd(*log, command, result);
    }
    if (!result.hasRun) {
        throw result.failure;
    }
    return result.result;
}

}  // namespace ztfi_pdk_4_4
