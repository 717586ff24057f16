// Waiting for children. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_WAITING_H
#define KIVCLAIM_HOST_RUNNER_WAITING_H

#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>

namespace kivclaim::host_internal {

// The status in the format of wait(), from the result of waitid().
inline int rawWaitStatus(const siginfo_t& information)
{
    constexpr int coreDumped = 0x80;
    if (information.si_code == CLD_EXITED) {
        return (information.si_status & 0xFF) << 8;
    }
    return information.si_status | (information.si_code == CLD_DUMPED ? coreDumped : 0);
}

// Calls the function until it returns true, with growing pauses, or until `patience` is over. Returns the last result.
template <class Question>
bool becomesTrue(std::chrono::milliseconds patience, Question question)
{
    using Clock = std::chrono::steady_clock;
    constexpr long shortestPause = 50L * 1000;
    constexpr long longestPause = 20L * 1000 * 1000;
    const Clock::time_point deadline = Clock::now() + patience;
    for (long nanoseconds = shortestPause; !question(); nanoseconds = std::min(2 * nanoseconds, longestPause)) {
        if (Clock::now() >= deadline) {
            return false;
        }
        const timespec pause{0, nanoseconds};
        ::ppoll(nullptr, 0, &pause, nullptr);
    }
    return true;
}

}  // namespace kivclaim::host_internal

#endif
