// Runs one command from its start to its end. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_COMMAND_RUN_H
#define KIVCLAIM_HOST_RUNNER_COMMAND_RUN_H

#include "framework/cfiexecpipe.h"
#include "host/runner/child_process.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

struct RunLimits {
    std::chrono::milliseconds wholeRun{0};             // 0: none
    std::chrono::milliseconds fromTermToKill{2000};    // for the group to end on SIGTERM
    std::chrono::milliseconds fromKillToLeave{10000};  // for the kernel to end the child on SIGKILL
    std::chrono::milliseconds silenceAfterEnd{1000};   // how long others may keep the pipes silently open
    std::size_t outputBytes = std::size_t{1} << 30;    // of standard output, and of standard error
    std::size_t outputLines = std::size_t{1} << 26;    // a short line costs far more memory than its bytes
    std::chrono::steady_clock::time_point latestEnd = std::chrono::steady_clock::time_point::max();
    int cancellation = -1;  // a descriptor that becomes readable when the run is to be given up; -1: never
};

struct CommandResult {
    bool hasRun = false;                // false: `failure` is to be thrown
    int result = 0;                     // 0 when the command ran and succeeded
    ztfi_pdk_4_4::EFiExecPipe failure;  // filled unless the command succeeded
};

// Runs `command` and appends the lines of its standard output to `output`; standard error is kept for the failure
// record. The result is the exit code, or 128 and the signal for a child that a signal ended. A child that has ended
// when its time limit is noticed is judged by how it ended, however late that is. 128 and SIGTERM is the result for one
// that exited with 0 after it was asked to end, or while others still wrote to its output at the time limit: an output
// that was cut off is no success. Commands that could not be run leave `output` as it was.
//
// Threads: any, each with an output of its own. The caller holds cancellations of the thread off.
// Ownership: child, descriptors and buffers are its own and gone afterwards, on every path. A child that not even
// SIGKILL ends is left behind, see abandoned_children.h.
// Failure: the result says it; running out of memory is std::bad_alloc.
CommandResult runCommand(const std::string& command, const RunLimits& limits, std::vector<std::string>& output,
                         const SystemCalls& calls = realSystemCalls());

// The same for a command that is taken apart; `shownAs` is its text in the record of a failure.
CommandResult runWords(const std::vector<std::string>& words, const std::string& shownAs, const RunLimits& limits,
                       std::vector<std::string>& output);

// What runCommand says of a command that ended so, by itself, after writing `errors` to standard error.
CommandResult resultOfEnded(const std::string& command, int exitStatus, int signal, const std::string& errors);

// What it says of a command whose program is not there.
CommandResult resultOfMissing(const std::string& command);

}  // namespace kivclaim::host_internal

#endif
