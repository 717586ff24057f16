#include "host/runner/governor.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace kivclaim::host_internal {

namespace {

using Clock = std::chrono::steady_clock;

// A time too far in the future would overflow; thirty years are as good as no limit.
constexpr std::chrono::hours longest{24 * 365 * 30};

Clock::time_point latestEndOf(const RunLimits& limits, Clock::time_point start)
{
    Clock::time_point end = limits.latestEnd;
    if (limits.wholeRun.count() != 0) {
        end = std::min(end, start + limits.wholeRun);
    }
    const bool isNever = end >= Clock::time_point::max() - 2 * longest;
    return isNever ? Clock::time_point::max() : end + limits.fromTermToKill + limits.fromKillToLeave;
}

}  // namespace

Governor::Entry::Entry(Governor& itsGovernor, const std::string& command, const RunLimits& allowed)
    : governor(itsGovernor)
{
    const Clock::time_point start = Clock::now();
    const std::lock_guard<std::mutex> guard(governor.lock);
    place = governor.commands.insert(governor.commands.end(), {command, start, latestEndOf(allowed, start)});
}

Governor::Entry::~Entry()
{
    const std::lock_guard<std::mutex> guard(governor.lock);
    governor.commands.erase(place);
}

Governor::Governor(const host::CommandLimits& commandLimits)
    : limits(commandLimits), cancellation(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (!cancellation.isOpen()) {
        throw std::system_error(errno, std::generic_category(), "a command runner needs a descriptor");
    }
}

RunLimits Governor::limitsFor(std::chrono::milliseconds timeLimit) const
{
    RunLimits run;
    run.wholeRun = std::min<std::chrono::milliseconds>(limits.wholeRun.value_or(timeLimit), longest);
    run.latestEnd = limits.deadline;
    run.cancellation = cancellation.get();
    run.fromTermToKill = std::min<std::chrono::milliseconds>(limits.fromTermToKill, longest);
    run.fromKillToLeave = std::min<std::chrono::milliseconds>(limits.fromKillToLeave, longest);
    run.silenceAfterEnd = std::min<std::chrono::milliseconds>(limits.silenceAfterEnd, longest);
    run.outputBytes = limits.outputBytes;
    run.outputLines = limits.outputLines;
    return run;
}

void Governor::cancel() noexcept
{
    const int errorBefore = errno;  // of the code that a signal handler interrupted
    cancelled = true;
    ::eventfd_write(cancellation.get(), 1);
    errno = errorBefore;
}

std::vector<host::RunningCommand> Governor::running() const
{
    const std::lock_guard<std::mutex> guard(lock);
    return {commands.begin(), commands.end()};
}

}  // namespace kivclaim::host_internal
