// The state of a CommandRunner, which its runs share. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_GOVERNOR_H
#define KIVCLAIM_HOST_RUNNER_GOVERNOR_H

#include "host/command_runner.h"
#include "host/runner/command_run.h"
#include "host/runner/file_descriptor.h"

#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

// The limits, the cancellation and the current runs of one CommandRunner.
//
// Threads: any. Ownership: shared by the runner, its scopes and its runs.
// Failure: std::system_error, std::bad_alloc.
class Governor {
public:
    explicit Governor(const host::CommandLimits& commandLimits);

    // Calls `work` with the limits for the command; `timeLimit` applies when the governor's limits have none.
    template <class Work>
    CommandResult run(const std::string& command, std::chrono::milliseconds timeLimit, Work work)
    {
        const RunLimits allowed = limitsFor(timeLimit);
        const Entry entry(*this, command, allowed);
        return work(allowed);
    }

    // Async-signal-safe.
    void cancel() noexcept;
    bool isCancelled() const noexcept { return cancelled; }

    std::vector<host::RunningCommand> running() const;

private:
    // An entry in the list of current runs; removed when the run ends.
    class Entry {
    public:
        Entry(Governor& itsGovernor, const std::string& command, const RunLimits& allowed);
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;
        ~Entry();

    private:
        Governor& governor;
        std::list<host::RunningCommand>::iterator place;
    };

    RunLimits limitsFor(std::chrono::milliseconds timeLimit) const;

    const host::CommandLimits limits;
    std::atomic<bool> cancelled{false};
    FileDescriptor cancellation;  // readable once it is cancelled
    mutable std::mutex lock;      // for the list
    std::list<host::RunningCommand> commands;
};

// The governor of the innermost scope that is open on this thread; null when there is none.
std::shared_ptr<Governor> governorOfThread();

}  // namespace kivclaim::host_internal

#endif
