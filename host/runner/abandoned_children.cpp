#include "host/runner/abandoned_children.h"

#include "host/runner/file_descriptor.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace kivclaim::host_internal {

namespace {

struct AbandonedChild {
    pid_t process = 0;  // 0: the place is free
    unsigned long long startTime = 0;
};

// No destructor runs for these at the end of the process: another thread may still be running a command then.
std::mutex placesLock;
std::array<AbandonedChild, 64> places;
std::size_t nextPlace = 0;
std::atomic<bool> anyRemembered{false};

// The start time as the kernel writes it, in clock ticks since it was booted; 0 when there is no such process.
unsigned long long startTimeOf(pid_t process) noexcept
{
    constexpr int fieldsBetween = 20;  // from the end of the program's name to the start time
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(process));
    const FileDescriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    char text[1024];
    const ssize_t length = file.isOpen() ? ::read(file.get(), text, sizeof text - 1) : -1;
    if (length <= 0) {
        return 0;
    }
    text[length] = '\0';
    const char* field = std::strrchr(text, ')');  // the program's name may contain anything, even blanks
    for (int i = 0; field != nullptr && i < fieldsBetween; ++i) {
        field = std::strchr(field + 1, ' ');
    }
    return field == nullptr ? 0 : std::strtoull(field, nullptr, 10);
}

bool isCollected(const AbandonedChild& child) noexcept
{
    if (startTimeOf(child.process) != child.startTime) {
        return true;  // somebody else collected it
    }
    return ::waitpid(child.process, nullptr, WNOHANG) != 0;
}

}  // namespace

void rememberAbandonedChild(pid_t process) noexcept
{
    const unsigned long long startTime = startTimeOf(process);
    if (startTime == 0) {
        return;
    }
    const std::lock_guard<std::mutex> guard(placesLock);
    places[nextPlace] = {process, startTime};
    nextPlace = (nextPlace + 1) % places.size();
    anyRemembered = true;
}

void collectAbandonedChildren() noexcept
{
    if (!anyRemembered) {
        return;
    }
    // Tried only: after a fork by the process the lock may be held by a thread that does not exist any more.
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
