// Facts about other processes, from /proc. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_PROCESS_TABLE_H
#define KIVCLAIM_HOST_RUNNER_PROCESS_TABLE_H

#include <sys/types.h>

namespace kivclaim::host_internal {

struct ProcessState {
    enum class Known { yes, noSuchProcess, no };

    Known isKnown = Known::no;  // the rest is filled for `yes`; `no`: /proc cannot be read at present
    char state = '?';
    pid_t group = 0;
    unsigned long long startTime = 0;  // in clock ticks since the machine was booted

    bool isRunning() const { return isKnown == Known::yes && state != 'Z' && state != 'X'; }
};

// Threads: any. Failure: see isKnown.
ProcessState stateOf(pid_t process) noexcept;

// Whether a process of this group exists that is not a zombie; true when /proc cannot be read.
bool hasRunningMembers(pid_t group) noexcept;

}  // namespace kivclaim::host_internal

#endif
