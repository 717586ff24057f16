// A process between a host and its tool. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_STATUS_KEEPER_H
#define KIVCLAIM_HOST_RUNNER_STATUS_KEEPER_H

#include "host/runner/file_descriptor.h"
#include "host/runner/tool_start.h"

#include <sys/types.h>

#include <chrono>
#include <optional>

namespace kivclaim::host_internal {

// Whether the process would lose the status of a child: it ignores SIGCHLD or wants no zombies, or it may collect every
// child in a handler or by waiting for the blocked signal, or a status was lost before.
bool mayLoseStatuses(const AllSignalsBlocked& signals) noexcept;

// A status was lost in a process of which none of the above is true: a thread of it collects every child.
void rememberLostStatus() noexcept;

// A copy of the process that starts the tool, waits for it and reports its status through a socket. The host cannot
// lose the keeper's own end: its end sends no signal, so that ignoring SIGCHLD does not concern it, and only who asks
// for such children by name (__WALL, __WCLONE) collects it.
//
// The copy is made with the page tables of the process, which takes longer the larger the process is, and it is made
// only for hosts that need it. It holds no descriptor of the host's, runs no handler of pthread_atfork, and ends with
// the host, and with it the tool. The tool stays a zombie, and its number its own, until the keeper is released.
//
// Threads: belongs to one. Ownership: owns the socket; the owner ends the tool and releases the keeper.
// Failure: RunProblem when it cannot be made.
class StatusKeeper {
public:
    enum class Report { none, status, lost };

    StatusKeeper() = default;

    // Starts keeper and tool; fills `start`.
    void startTool(ToolStart& start);

    bool isUsed() const { return process != 0; }
    // Becomes readable when the tool ends.
    int descriptor() const { return socket.get(); }

    // Looks for the report of the tool's end; `waitStatus` is filled when it has come.
    Report receive(int& waitStatus) noexcept;

    // Whether the keeper still holds the tool's number.
    bool isAlive() const noexcept;

    // Lets the keeper collect the tool, whenever that ends, and leaves the keeper to collectAbandonedChildren.
    void leaveBehind() noexcept;

    // Lets the keeper collect the tool, which has ended, and end, and collects the keeper, or leaves it to
    // collectAbandonedChildren when it has not ended after `patience`.
    void release(std::chrono::milliseconds patience) noexcept;

private:
    pid_t process = 0;
    FileDescriptor socket;
    std::optional<int> reported;
};

}  // namespace kivclaim::host_internal

#endif
