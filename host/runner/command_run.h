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
    std::chrono::milliseconds silenceAfterEnd{1000};   // how long others may hold the pipes open without writing
    std::size_t outputBytes = std::size_t{1} << 30;    // of standard output, and of standard error
    std::size_t outputLines = std::size_t{1} << 26;    // a short line costs far more memory than its bytes
    std::chrono::steady_clock::time_point latestEnd = std::chrono::steady_clock::time_point::max();
    int cancellation = -1;  // a descriptor that becomes readable when the run is cancelled; -1: never
};

struct CommandResult {
    bool hasRun = false;                // false: the caller throws `failure`
    int result = 0;                     // 0 when the command ran and succeeded
    ztfi_pdk_4_4::EFiExecPipe failure;  // filled unless the command succeeded
};

// Runs `command` and appends the lines of its standard output to `output`; standard error is kept for the failure
// record. The result is the exit code, or 128 plus the signal for a child that a signal ended. If the child has already
// ended when the time limit is noticed, however late, its own status counts. The result is 128 plus SIGTERM if it
// exited with 0 after SIGTERM was sent, or if others still wrote to its output at the time limit: a truncated output is
// not a success. Commands that could not be run leave `output` as it was.
//
// Threads: any, each with its own output. The caller must postpone cancellations of the thread.
// Ownership: owns child, descriptors and buffers and frees them on every path. A child that survives SIGKILL is
// abandoned, see abandoned_children.h.
// Failure: part of the result; running out of memory is std::bad_alloc.
CommandResult runCommand(const std::string& command, const RunLimits& limits, std::vector<std::string>& output,
                         const SystemCalls& calls = realSystemCalls());

// The same for a command that is already split into words; `shownAs` is its text in the record of a failure.
CommandResult runWords(const std::vector<std::string>& words, const std::string& shownAs, const RunLimits& limits,
                       std::vector<std::string>& output);

// What runCommand returns for a command that ended by itself with this status, after writing `errors` to standard
// error.
CommandResult resultOfEnded(const std::string& command, int exitStatus, int signal, const std::string& errors);

// What it returns for a command whose program does not exist.
CommandResult resultOfMissing(const std::string& command);

}  // namespace kivclaim::host_internal

#endif
