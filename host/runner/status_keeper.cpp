#include "host/runner/status_keeper.h"

#include "host/runner/abandoned_children.h"
#include "host/runner/descriptors.h"
#include "host/runner/run_problem.h"
#include "host/runner/waiting.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <utility>

namespace kivclaim::host_internal {

namespace {

std::atomic<bool> wasStatusLost{false};

constexpr int socketOfKeeper = STDERR_FILENO + 1;
constexpr std::chrono::milliseconds timeToEnd{1000};  // of a keeper whose tool cannot be started

// The keeper's message: sent once after the start, and once after the end of the tool.
struct StartReport {
    int errorNumber;
    pid_t process;
    const char* reason;  // the same in both: the keeper is a copy of the host
};

struct Ends {
    FileDescriptor host;
    FileDescriptor keeper;
};

Ends openSocket()
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        throw RunProblem{errno, "there is no descriptor left for its status"};
    }
    Ends opened{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
    raiseAboveStandardDescriptors(opened.host);
    raiseAboveStandardDescriptors(opened.keeper);
    return opened;
}

// From here to `keep`, everything runs in the fork, which has only this thread. It makes system calls only: a lock of
// the C library that another thread held during the fork is never released there.

KIVCLAIM_UNSANITIZED bool send(int socket, const void* message, std::size_t size)
{
    while (::syscall(SYS_sendto, socket, message, size, MSG_NOSIGNAL, nullptr, 0) < 0) {
        if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Puts the tool's outputs on the descriptors that the tool will use, and the socket on the next one. They are
// duplicated first, to descriptors above these.
KIVCLAIM_UNSANITIZED bool arrangeDescriptors(ToolStart& start, int socket)
{
    int ends[] = {start.outputEnd, start.errorEnd, socket};
    for (int& end : ends) {
        end = static_cast<int>(::syscall(SYS_fcntl, end, F_DUPFD, socketOfKeeper + 1));
        if (end < 0) {
            return false;
        }
    }
    for (int i = 0; i < 3; ++i) {
        if (::syscall(SYS_dup3, ends[i], STDOUT_FILENO + i, 0) < 0) {
            return false;
        }
    }
    ::syscall(SYS_close, STDIN_FILENO);
    start.outputEnd = STDOUT_FILENO;
    start.errorEnd = STDERR_FILENO;
    return true;
}

KIVCLAIM_UNSANITIZED void startAndReport(ToolStart& start, int socket)
{
    if (arrangeDescriptors(start, socket)) {
        closeDescriptorsFrom(socketOfKeeper + 1);
        startTool(start);
        socket = socketOfKeeper;
    } else {
        start.errorNumber = errno;
    }
    const StartReport report{start.errorNumber, start.process, start.reason};
    // A keeper that cannot report is useless: when it ends, the tool is killed and the host notices.
    if (!send(socket, &report, sizeof report) || start.errorNumber != 0) {
        endHere();
    }
    // If the keeper kept these open, the pipes would not end with the tool.
    ::syscall(SYS_close, STDOUT_FILENO);
    ::syscall(SYS_close, STDERR_FILENO);
}

// The tool's process ID stays reserved until the host has closed the socket: only then the tool is collected. A host
// that abandoned the tool has closed it long before.
KIVCLAIM_UNSANITIZED void awaitAndReport(pid_t tool)
{
    siginfo_t information;
    while (::syscall(SYS_waitid, P_PID, tool, &information, WEXITED | WNOWAIT, nullptr) != 0) {
        if (errno != EINTR) {
            endHere();
        }
    }
    const int status = rawWaitStatus(information);
    if (send(socketOfKeeper, &status, sizeof status)) {
        char byte;
        while (::syscall(SYS_read, socketOfKeeper, &byte, sizeof byte) < 0 && errno == EINTR) {
        }
    }
    ::syscall(SYS_wait4, tool, nullptr, 0, nullptr);
}

KIVCLAIM_UNSANITIZED void keep(ToolStart& start, int socket, pid_t host)
{
    if (endsWithItsParent(host)) {
        resetSignals();
        startAndReport(start, socket);
        awaitAndReport(start.process);
    }
    endHere();
}

ssize_t receiveMessage(const FileDescriptor& socket, void* message, std::size_t size, int flags)
{
    ssize_t count;
    do {
        count = ::recv(socket.get(), message, size, flags);
    } while (count < 0 && errno == EINTR);
    return count;
}

}  // namespace

bool mayLoseStatuses(const AllSignalsBlocked& signals) noexcept
{
    struct sigaction ofChildren = {};
    ::sigaction(SIGCHLD, nullptr, &ofChildren);
    return wasStatusLost || signals.wasBlockedBefore(SIGCHLD) || ofChildren.sa_handler != SIG_DFL ||
           (ofChildren.sa_flags & SA_NOCLDWAIT) != 0;
}

void rememberLostStatus() noexcept
{
    wasStatusLost = true;
}

void StatusKeeper::startTool(ToolStart& start)
{
    Ends ends = openSocket();
    const pid_t host = ::getpid();
    // Like fork, but without a signal at the child's end.
    process = static_cast<pid_t>(::syscall(SYS_clone, 0, nullptr, nullptr, nullptr, nullptr));
    if (process == 0) {
        keep(start, ends.keeper.get(), host);
    }
    if (process < 0) {
        start.errorNumber = errno;
        process = 0;
        return;
    }
    ends.keeper.reset();
    socket = std::move(ends.host);
    StartReport report{ECHILD, 0, "the process that should keep its status has ended"};
    receiveMessage(socket, &report, sizeof report, 0);
    start.errorNumber = report.errorNumber;
    start.process = report.process;
    start.reason = report.reason;
    if (start.errorNumber != 0) {
        release(timeToEnd);
    }
}

StatusKeeper::Report StatusKeeper::receive(int& waitStatus) noexcept
{
    if (reported.has_value()) {
        waitStatus = *reported;
        return Report::status;
    }
    int status = 0;
    const ssize_t count = receiveMessage(socket, &status, sizeof status, MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN) {
        return Report::none;
    }
    if (count != sizeof status) {
        return Report::lost;
    }
    reported = status;
    waitStatus = status;
    return Report::status;
}

bool StatusKeeper::isAlive() const noexcept
{
    pollfd source{socket.get(), 0, 0};
    return ::poll(&source, 1, 0) == 0;
}

void StatusKeeper::leaveBehind() noexcept
{
    socket.reset();
    rememberAbandonedChild(process);
    process = 0;
}

void StatusKeeper::release(std::chrono::milliseconds patience) noexcept
{
    socket.reset();
    const auto isCollected = [this] {
        const pid_t collected = ::waitpid(process, nullptr, WNOHANG | __WALL);
        return collected > 0 || (collected < 0 && errno == ECHILD);
    };
    if (!becomesTrue(patience, isCollected)) {
        leaveBehind();
    }
    process = 0;
}

}  // namespace kivclaim::host_internal
