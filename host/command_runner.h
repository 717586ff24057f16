// Limits, deadlines and cancellation for the commands of the bundled host.
#ifndef KIVCLAIM_HOST_COMMAND_RUNNER_H
#define KIVCLAIM_HOST_COMMAND_RUNNER_H

#include "framework/cfiexecpipe.h"
#include "framework/ztfi_export.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kivclaim::host {

// The limits of a command. The defaults apply to every Exec.
struct CommandLimits {
    // For the whole run; 0: no limit. Without a value, the limit is the one that Exec is given (the library: 600 s).
    std::optional<std::chrono::milliseconds> wholeRun{};
    // All runs together end at this time; a later run is not started.
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
    std::chrono::milliseconds fromTermToKill{2000};    // for the process group to end on SIGTERM
    std::chrono::milliseconds fromKillToLeave{10000};  // for the kernel to end the command on SIGKILL
    std::chrono::milliseconds silenceAfterEnd{1000};   // how long others may hold its output open without writing
    std::size_t outputBytes = std::size_t{1} << 30;    // of standard output, and of standard error
    std::size_t outputLines = std::size_t{1} << 26;    // of standard output
};

// A running command.
struct RunningCommand {
    std::string command;                              // as it was given; the words of a list joined by blanks
    std::chrono::steady_clock::time_point start;      // when it was started
    std::chrono::steady_clock::time_point latestEnd;  // by then it has ended or was abandoned; max(): no limit
};

// The outcome of a command that ran.
struct RunOutcome {
    int result = 0;                     // the result of Exec: 0 when the command ran and succeeded
    std::vector<std::string> lines;     // of its standard output, in order, without line ends
    ztfi_pdk_4_4::EFiExecPipe failure;  // filled when the result is not 0
};

// Runs commands within its own limits. Other threads can ask it what runs, and cancel that.
//
// A cancelled runner ends its commands with their process groups, as at a time limit, and starts no other: each run
// throws EFiExecPipe with the error number ECANCELED. A command that had ended by itself keeps its result. After the
// deadline, the error number is ETIMEDOUT.
//
// Commands inherit from the process and the calling thread: user and groups, working and root directory, file mask,
// resource limits, control group, namespaces and capabilities, nice value, scheduling policy, processors and memory
// nodes, I/O priority, and the score by which the kernel selects processes to kill when memory runs out. They get their
// own process group and no terminal, default signal handling, standard input from the null device, and no descriptor
// except the standard ones. When the process ends, for whatever reason, the kernel kills them, except a program that
// changes its user.
//
// Threads: any number at the same time; their runs share the limits and the cancellation.
// Ownership: it may be destroyed while a run or a scope still uses it: these keep what they need.
// Failure: std::system_error when there is no descriptor left for it, std::bad_alloc.
class ZTFI_API CommandRunner {
public:
    // The limits apply to all its runs.
    explicit CommandRunner(const CommandLimits& limits = CommandLimits());
    CommandRunner(const CommandRunner&) = delete;
    CommandRunner& operator=(const CommandRunner&) = delete;
    ~CommandRunner();

    // Runs the program that the first word names by its absolute path, with the other words as its arguments, which may
    // contain blanks. Without a limit for the whole run, there is none. Throws EFiExecPipe when it could not be run.
    RunOutcome run(const std::vector<std::string>& words);

    // Takes effect at once and cannot be undone. May be called in a signal handler.
    void cancel() noexcept;
    // Whether `cancel` was called.
    bool isCancelled() const noexcept;

    // The running commands, the one that has run longest first.
    std::vector<RunningCommand> running() const;

private:
    class State;
    friend class CommandRunnerScope;

    std::shared_ptr<State> state;
};

// While it exists, every Exec on this thread, by any caller and through any CFiExecPipePosix, runs within the limits of
// the runner and can be cancelled through it. So a host limits the time of a claim:
//
//     CommandLimits limits;
//     limits.deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
//     CommandRunner runner(limits);
//     const CommandRunnerScope scope(runner);
//     manager.claim(path);  // another thread may call runner.cancel()
//
// Scopes nest: the innermost one applies.
//
// Threads: affects only the thread that created it; it may be destroyed on another. Ownership: shares the runner's
// state. Failure: std::bad_alloc.
class ZTFI_API CommandRunnerScope {
public:
    // Applies from now on, on this thread.
    explicit CommandRunnerScope(const CommandRunner& runner);
    CommandRunnerScope(const CommandRunnerScope&) = delete;
    CommandRunnerScope& operator=(const CommandRunnerScope&) = delete;
    ~CommandRunnerScope();

private:
    class Scope;

    std::unique_ptr<Scope> scope;
};

}  // namespace kivclaim::host

#endif
