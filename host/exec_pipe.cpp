// The implementation of the framework's command runner: traces, records failures and uses snapshots. runOrReplay does
// the run itself.
#include "framework/cfiexecpipe.h"

#include "host/cancellation_hold.h"
#include "host/printable_text.h"
#include "host/runner/command_run.h"
#include "host/runner/governor.h"
#include "host/runner/line_collector.h"
#include "host/runner/replayed_run.h"
#include "host/runner/snapshot_place.h"

#include <algorithm>
#include <cerrno>
#include <memory>

using kivclaim::host::printableText;
using kivclaim::host_internal::CommandResult;
using kivclaim::host_internal::Governor;
using kivclaim::host_internal::LinesUntilKept;
using kivclaim::host_internal::RunLimits;
using kivclaim::host_internal::SnapshotPlace;

namespace ztfi_pdk_4_4 {

namespace {

// The clock would overflow after about three hundred years; a limit above thirty years is as good as none.
RunLimits limitsFor(unsigned long timeoutSeconds)
{
    constexpr unsigned long longestSeconds = 1000UL * 1000 * 1000;
    RunLimits limits;
    if (timeoutSeconds <= longestSeconds) {
        limits.wholeRun = std::chrono::seconds(timeoutSeconds);
    }
    return limits;
}

// Runs it within the limits of this thread's CommandRunnerScope, if there is one.
CommandResult run(const std::string& command, unsigned long timeoutSeconds, std::vector<std::string>& output)
{
    const RunLimits limits = limitsFor(timeoutSeconds);
    const std::shared_ptr<Governor> governor = kivclaim::host_internal::governorOfThread();
    if (governor == nullptr) {
        return runOrReplay(command, limits, output);
    }
    return governor->run(command, limits.wholeRun,
                         [&](const RunLimits& allowed) { return runOrReplay(command, allowed, output); });
}

// A cancelled run must not become the remembered outcome of its command.
bool isWorthRemembering(const CommandResult& result)
{
    return result.hasRun || result.failure.errorNumber != ECANCELED;
}

CommandResult runAndFill(SnapshotPlace& place, const std::string& command, unsigned long timeoutSeconds)
{
    place.lines.clear();
    place.result = run(command, timeoutSeconds, place.lines);
    place.isFilled = isWorthRemembering(place.result);
    return place.result;
}

// Runs the command, or returns the outcome that `place` remembers; `place` is null for a command that no snapshot
// names.
CommandResult obtain(SnapshotPlace* place, const std::string& command, unsigned long timeoutSeconds,
                     std::vector<std::string>& output)
{
    if (place == nullptr) {
        return run(command, timeoutSeconds, output);
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
        // A NUL byte in the tool's output would cut the record short.
        std::string message = result.failure.message;
        std::replace(message.begin(), message.end(), '\0', ' ');
        log.trace(ZTFI_TRACE_LEVEL_WARNING, "%s", message.c_str());
    }
}

// Whatever it throws, the output is as it was before.
int execute(CFiTraceLog* log, const std::string& command, unsigned long timeoutSeconds,
            std::vector<std::string>& output, EFiExecPipe& lastFailure)
{
    // Held until the function returns: a receiver of records may close the snapshot.
    const std::shared_ptr<SnapshotPlace> place = kivclaim::host_internal::snapshotPlaceOf(command);
    const bool isGivenAgain = place != nullptr && place->isFilled;
    if (log != nullptr) {
        log->trace(ZTFI_TRACE_LEVEL_DETAIL, isGivenAgain ? "Giving again what was remembered of [%s]" : "Running [%s]",
                   printableText(command).c_str());
    }
    LinesUntilKept lines(output);
    const CommandResult result = obtain(place.get(), command, timeoutSeconds, output);
    if (result.result != 0) {
        lastFailure = result.failure;
    }
    if (log != nullptr && !isGivenAgain) {
        traceEnd(*log, command, result);
    }
    if (!result.hasRun) {
        throw result.failure;
    }
    lines.keep();
    return result.result;
}

}  // namespace

// The selector is ignored.
CFiExecPipePosix::CFiExecPipePosix(int)
{
}

int CFiExecPipeBase::Exec(std::string command, std::vector<std::string>& output, std::string,
                          unsigned long timeoutSeconds, std::string, std::string, std::string)
{
    return kivclaim::host_internal::withoutCancellation(
        [&] { return execute(traceLog.get(), command, timeoutSeconds, output, lastFailure); });
}

}  // namespace ztfi_pdk_4_4
