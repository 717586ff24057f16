// A process between a host and its tool. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_STATUS_KEEPER_H
#define KIVCLAIM_HOST_RUNNER_STATUS_KEEPER_H

#include "host/runner/file_descriptor.h"
#include "host/runner/tool_start.h"

#include <sys/types.h>

#include <chrono>
#include <optional>

namespace kivclaim::host_internal {

// Whether the process would lose the status of a child: it ignores SIGCHLD or sets SA_NOCLDWAIT, or it may collect
// every child in a handler or by waiting for the blocked signal, or a status was lost before.
bool mayLoseStatuses(const AllSignalsBlocked& signals) noexcept;

// Call it when a status was lost although none of these is true: another thread collects every child.
void rememberLostStatus() noexcept;

// A fork of the process that starts the tool, waits for it and reports its status through a socket. The host cannot
// lose the keeper's own status: the keeper's end sends no signal, so ignoring SIGCHLD does not affect it, and only a
// wait with __WALL or __WCLONE collects it.
//
// Forking copies the page tables of the process and takes longer the larger the process is, so it is done only for
// hosts that need it. The keeper has no descriptor of the host, runs no handler of pthread_atfork, and ends with the
// host; then the tool ends, too. The tool stays a zombie, and its process ID is not reused, until the keeper is
// released.
//
// Threads: belongs to one thread. Ownership: owns the socket; the owner ends the tool and releases the keeper.
// Failure: RunProblem when it cannot be created.
class StatusKeeper {
public:
    enum class Report { none, status, lost };

    StatusKeeper() = default;

    // Starts keeper and tool; fills `start`.
    void startTool(ToolStart& start);

    bool isUsed() const { return process != 0; }
    // Becomes readable when the tool ends.
    int descriptor() const { return socket.get(); }

    // Checks for the report of the tool's end; sets `waitStatus` when it has arrived.
    Report receive(int& waitStatus) noexcept;

    // Whether the keeper still reserves the tool's process ID.
    bool isAlive() const noexcept;

    // Lets the keeper collect the tool when it ends, and leaves the keeper to collectAbandonedChildren.
    void leaveBehind() noexcept;

    // Lets the keeper collect the ended tool and end. Collects the keeper, or leaves it to collectAbandonedChildren
    // when it has not ended after `patience`.
    void release(std::chrono::milliseconds patience) noexcept;

private:
    pid_t process = 0;
    FileDescriptor socket;
    std::optional<int> reported;
};

}  // namespace kivclaim::host_internal

#endif
