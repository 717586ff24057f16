#include "host/runner/abandoned_children.h"

#include "host/runner/process_table.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <mutex>

namespace kivclaim::host_internal {

namespace {

struct AbandonedChild {
    pid_t process = 0;                    // 0: the place is free
    unsigned long long rememberedAt = 0;  // in clock ticks since the machine was booted
};

// These have no destructor at the end of the process: another thread may still be running a command then.
std::mutex placesLock;
std::array<AbandonedChild, 64> places;
std::size_t nextPlace = 0;
std::atomic<bool> anyRemembered{false};

// In the unit of the kernel's start times of processes: clock ticks since the machine was booted.
unsigned long long ticksSinceBoot() noexcept
{
    constexpr unsigned long long nanosecondsPerSecond = 1000UL * 1000 * 1000;
    timespec now{};
    ::clock_gettime(CLOCK_BOOTTIME, &now);
    const auto ticksPerSecond = static_cast<unsigned long long>(::sysconf(_SC_CLK_TCK));
    return static_cast<unsigned long long>(now.tv_sec) * ticksPerSecond +
           static_cast<unsigned long long>(now.tv_nsec) / (nanosecondsPerSecond / ticksPerSecond);
}

// Whether the child is collected, by this call or by other code of the process.
bool isCollected(const AbandonedChild& child) noexcept
{
    siginfo_t information;
    if (::waitid(P_PID, static_cast<id_t>(child.process), &information, WEXITED | WNOHANG | WNOWAIT | __WALL) != 0) {
        return errno == ECHILD;
    }
    const ProcessState state = stateOf(child.process);
    if (state.isKnown != ProcessState::Known::yes) {
        return false;
    }
    if (state.startTime > child.rememberedAt) {
        return true;  // other code collected it, and this is another child with the same process ID
    }
    return ::waitpid(child.process, nullptr, WNOHANG | __WALL) > 0;
}

}  // namespace

void rememberAbandonedChild(pid_t process) noexcept
{
    const std::lock_guard<std::mutex> guard(placesLock);
    places[nextPlace] = {process, ticksSinceBoot()};
    nextPlace = (nextPlace + 1) % places.size();
    anyRemembered = true;
}

void collectAbandonedChildren() noexcept
{
    if (!anyRemembered) {
        return;
    }
    // try_lock: after the process has forked, the lock may be held by a thread that no longer exists.
    const std::unique_lock<std::mutex> guard(placesLock, std::try_to_lock);
    if (!guard.owns_lock()) {
        return;
    }
    bool anyLeft = false;
    for (AbandonedChild& child : places) {
        if (child.process != 0 && isCollected(child)) {
            child.process = 0;
        }
        anyLeft = anyLeft || child.process != 0;
    }
    anyRemembered = anyLeft;
}

}  // namespace kivclaim::host_internal
