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

// What a command may use. The defaults are those of every Exec.
struct CommandLimits {
    // For the whole run; 0: no limit. Without a value, it is what the caller of Exec asks for (the library: 600 s).
    std::optional<std::chrono::milliseconds> wholeRun{};
    // When no run may go on any more, however many there have been; a later one is not started.
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max();
    std::chrono::milliseconds fromTermToKill{2000};    // for the process group to end on SIGTERM
    std::chrono::milliseconds fromKillToLeave{10000};  // for the kernel to end the command on SIGKILL
    std::chrono::milliseconds silenceAfterEnd{1000};   // how long others may keep its output silently open
    std::size_t outputBytes = std::size_t{1} << 30;    // of standard output, and of standard error
    std::size_t outputLines = std::size_t{1} << 26;    // of standard output
};

// A command that runs now.
struct RunningCommand {
    std::string command;                              // as it was given; the words of a list with a blank between them
    std::chrono::steady_clock::time_point start;      // when it was begun
    std::chrono::steady_clock::time_point latestEnd;  // by then it has ended or was left behind; max(): no limit
};

// What came of a command that ran.
struct RunOutcome {
    int result = 0;                     // as Exec gives it: 0 when the command ran and succeeded
    std::vector<std::string> lines;     // of its standard output, in order, without line ends
    ztfi_pdk_4_4::EFiExecPipe failure;  // filled when the result is not 0
};

// Runs commands within limits of its own, and can be asked from elsewhere what runs, and told to end it.
//
// A cancelled runner ends what it runs, with its process group, as at a time limit, and starts nothing more: each run
// is an EFiExecPipe with the error number ECANCELED. A command that had ended by itself keeps its result. After the
// deadline, the error number is ETIMEDOUT.
//
// Commands inherit from the process and the calling thread: user and groups, working and root directory, file mask,
// resource limits, control group, namespaces and capabilities, nice value, scheduling policy, processors and memory
// nodes, priority of input and output, and how readily the kernel kills for lack of memory. They get a process group of
// their own and no terminal, default signal handling, standard input from the null device, and no descriptor but the
// standard ones; and the kernel kills them when the process ends, however that ends, except for a program that changes
// its user.
//
// Threads: any, at once; the threads' runs share the limits and the cancellation.
// Ownership: a run that goes on, and a scope, keep what they need of it: it may be destroyed before them.
// Failure: std::system_error when there is no descriptor left for it, std::bad_alloc.
class ZTFI_API CommandRunner {
public:
    // With these limits, for all its runs.
    explicit CommandRunner(const CommandLimits& limits = CommandLimits());
    CommandRunner(const CommandRunner&) = delete;
    CommandRunner& operator=(const CommandRunner&) = delete;
    ~CommandRunner();

    // Runs the program that the first word names by its absolute path, with the others as its arguments, whatever
    // blanks they hold. Without a limit for the whole run, there is none. Throws EFiExecPipe when it could not be run.
    RunOutcome run(const std::vector<std::string>& words);

    // At once and for good. May be called in a signal handler.
    void cancel() noexcept;
    // Whether it was told to.
    bool isCancelled() const noexcept;

    // What runs now, the longest first: what is waited for, and for how long at most.
    std::vector<RunningCommand> running() const;

private:
    class State;
    friend class CommandRunnerScope;

    std::shared_ptr<State> state;
};

// While it lives, every Exec on this thread, whoever calls it through whichever CFiExecPipePosix, runs within the
// limits of the runner and can be cancelled through it. So a host bounds what a claim may take:
//
//     CommandLimits limits;
//     limits.deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
//     CommandRunner runner(limits);
//     const CommandRunnerScope scope(runner);
//     manager.claim(path);  // another thread may call runner.cancel()
//
// Scopes nest: the innermost one holds.
//
// Threads: holds for the thread that made it; it may be destroyed on another. Ownership: shares the runner's state.
// Failure: std::bad_alloc.
class ZTFI_API CommandRunnerScope {
public:
    // From now on, on this thread.
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
