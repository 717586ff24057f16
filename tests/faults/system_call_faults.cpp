#include "tests/faults/system_call_faults.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <gtest/gtest.h>

namespace tests {

namespace {

// What the two processes tell each other before the first call is judged: plain memory, because any call may be one of
// those that wait.
struct Meeting {
    std::atomic<int> listener{-1};
    std::atomic<bool> isTaken{false};
};

void require(bool condition, const char* what)
{
    if (!condition) {
        std::perror(what);
        std::abort();
    }
}

int installFilter(const std::vector<int>& numbers)
{
    std::vector<sock_filter> filter{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const int number : numbers) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned int>(number), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "no_new_privs");
    return static_cast<int>(
        ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

[[noreturn]] void work(Meeting& meeting, const std::vector<int>& numbers, const std::function<void()>& work)
{
    const int listener = installFilter(numbers);
    meeting.listener = listener;
    require(listener >= 0, "seccomp");
    while (!meeting.isTaken) {
    }
    ::close(listener);
    work();
    std::fflush(stdout);
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

int takeListener(pid_t host, Meeting& meeting)
{
    while (meeting.listener < 0) {
        require(::waitpid(host, nullptr, WNOHANG) == 0, "the process with faults did not come up");
    }
    const int process = static_cast<int>(::syscall(SYS_pidfd_open, host, 0));
    const int listener = static_cast<int>(::syscall(SYS_pidfd_getfd, process, meeting.listener.load(), 0));
    require(listener >= 0, "pidfd_getfd");
    ::close(process);
    meeting.isTaken = true;
    return listener;
}

// The caller may have ended meanwhile, or may have been interrupted and repeat the call: then no process waits for the
// reply.
void send(int listener, std::uint64_t id, const Reply& reply)
{
    if (reply.kind == Reply::Kind::givesDescriptor) {
        seccomp_notif_addfd added{};
        added.id = id;
        added.flags = SECCOMP_ADDFD_FLAG_SEND;
        added.srcfd = static_cast<unsigned int>(reply.value);
        require(::ioctl(listener, SECCOMP_IOCTL_NOTIF_ADDFD, &added) >= 0 || errno == ENOENT, "addfd");
        return;
    }
    seccomp_notif_resp response{};
    response.id = id;
    response.flags = reply.kind == Reply::Kind::goesOn ? SECCOMP_USER_NOTIF_FLAG_CONTINUE : 0;
    response.error = reply.kind == Reply::Kind::fails ? -static_cast<int>(reply.value) : 0;
    response.val = reply.kind == Reply::Kind::gives ? reply.value : 0;
    require(::ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &response) == 0 || errno == ENOENT, "reply");
}

void judgeOne(int listener, pid_t host, const Judge& judge)
{
    seccomp_notif notification{};
    if (::ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &notification) != 0) {
        return;
    }
    SystemCall call{host, static_cast<pid_t>(notification.pid), notification.data.nr, {}};
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        call.arguments[i] = notification.data.args[i];
    }
    send(listener, notification.id, judge(call));
}

// Runs until the host has ended. Closing the listener releases processes that outlive it: their calls then fail.
int judgeAll(int listener, pid_t host, const Judge& judge)
{
    constexpr int milliseconds = 20;
    int status = -1;
    for (;;) {
        pollfd source{listener, POLLIN, 0};
        if (::poll(&source, 1, milliseconds) > 0 && (source.revents & POLLIN) != 0) {
            judgeOne(listener, host, judge);
        } else if (::waitpid(host, &status, WNOHANG) == host) {
            return status;
        }
    }
}

}  // namespace

bool passesUnder(const std::vector<int>& numbers, const Judge& judge, const std::function<void()>& toDo)
{
    void* const shared = ::mmap(nullptr, sizeof(Meeting), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(shared != MAP_FAILED, "mmap");
    auto& meeting = *new (shared) Meeting;
    std::fflush(stdout);
    const pid_t host = ::fork();
    require(host >= 0, "fork");
    if (host == 0) {
        work(meeting, numbers, toDo);
    }
    const int listener = takeListener(host, meeting);
    const int status = judgeAll(listener, host, judge);
    ::close(listener);
    ::munmap(shared, sizeof(Meeting));
    return status == 0;
}

Judge failingAt(int number, int count, int errorNumber, int& made)
{
    made = 0;
    return [=, &made](const SystemCall& call) {
        if (!call.isOfHost() || call.number != number || ++made != count) {
            return goesOn();
        }
        return fails(errorNumber);
    };
}

// The compiler need not know that it is another process's.
void* addressOf(std::uint64_t address)
{
    void* pointer = nullptr;
    static_assert(sizeof pointer == sizeof address, "system calls have the arguments of the processor");
    std::memcpy(&pointer, &address, sizeof pointer);
    return pointer;
}

void writeForCaller(const SystemCall& call, std::uint64_t address, const void* bytes, std::size_t size)
{
    const iovec local{const_cast<void*>(bytes), size};
    const iovec remote{addressOf(address), size};
    require(::process_vm_writev(call.process, &local, 1, &remote, 1, 0) == static_cast<ssize_t>(size), "writing");
}

}  // namespace tests
