#include "host/runner/tool_start.h"

#include "host/runner/run_problem.h"

#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

// The C library's own name of clone: the thread sanitizer's replacement of the other name cannot stand a child that
// shares its parent's memory.
extern "C" int uninterceptedClone(int (*function)(void*), void* stack, int flags, void* argument,
                                  ...) __asm__("__clone");

namespace kivclaim::host_internal {

namespace {

constexpr unsigned long long allSignals = ~0ULL;
constexpr int lastSignal = 64;
constexpr int firstOrdinaryDescriptor = STDERR_FILENO + 1;
constexpr int notStarted = 127;
constexpr rlim_t mostDescriptors = rlim_t{1} << 20;  // searched when there is no limit

// Default handling as the kernel has it: all zeros, on every architecture.
struct KernelSignalAction {
    unsigned long fields[4];
};
constexpr KernelSignalAction defaultHandling{};

// Not sigprocmask, which leaves the two signals of the thread library alone.
KIVCLAIM_UNSANITIZED void setSignalMask(const unsigned long long& mask, unsigned long long* before)
{
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &mask, before, sizeof mask);
}

KIVCLAIM_UNSANITIZED bool setDescriptor(int from, int to)
{
    return from == to || ::syscall(SYS_dup3, from, to, 0) >= 0;
}

KIVCLAIM_UNSANITIZED bool setStandardDescriptors(const ToolStart& start)
{
    return setDescriptor(start.inputEnd, STDIN_FILENO) && setDescriptor(start.outputEnd, STDOUT_FILENO) &&
           setDescriptor(start.errorEnd, STDERR_FILENO);
}

// Runs in the child, in the parent's memory. execve is called as the C library's function, so that a process which
// replaces it sees the call.
KIVCLAIM_UNSANITIZED int becomeTool(void* argument)
{
    auto& start = *static_cast<ToolStart*>(argument);
    resetSignals();
    if (endsWithItsParent(start.parent) && ::syscall(SYS_setsid) >= 0 && setStandardDescriptors(start)) {
        closeDescriptorsFrom(firstOrdinaryDescriptor);
        const unsigned long long none = 0;
        setSignalMask(none, nullptr);
        ::execve(start.arguments[0], start.arguments, start.environment);
    }
    start.errorNumber = errno;
    endHere();
}

KIVCLAIM_UNSANITIZED pid_t cloneTool(ToolStart& start, int furtherFlags)
{
    return uninterceptedClone(&becomeTool, start.stackTop, CLONE_VM | CLONE_VFORK | furtherFlags | SIGCHLD, &start,
                              &start.processDescriptor);
}

}  // namespace

AllSignalsBlocked::AllSignalsBlocked()
{
    setSignalMask(allSignals, &before);
}

AllSignalsBlocked::~AllSignalsBlocked()
{
    setSignalMask(before, nullptr);
}

ChildStack::ChildStack()
    : memory(::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0))
{
    if (memory == MAP_FAILED) {
        throw RunProblem{errno, "there is no memory for its start"};
    }
}

ChildStack::~ChildStack()
{
    ::munmap(memory, size);
}

KIVCLAIM_UNSANITIZED bool endsWithItsParent(pid_t parent) noexcept
{
    return ::syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0 && ::syscall(SYS_getppid) == parent;
}

KIVCLAIM_UNSANITIZED void resetSignals() noexcept
{
    for (int signal = 1; signal <= lastSignal; ++signal) {
        ::syscall(SYS_rt_sigaction, signal, &defaultHandling, nullptr, sizeof allSignals);
    }
}

// Kernels before 5.9, and some filters of system calls, know no close_range.
KIVCLAIM_UNSANITIZED void closeDescriptorsFrom(int first) noexcept
{
    if (::syscall(SYS_close_range, first, ~0U, 0) == 0) {
        return;
    }
    rlimit limit{};
    ::syscall(SYS_prlimit64, 0, RLIMIT_NOFILE, nullptr, &limit);
    const rlim_t end = limit.rlim_cur < mostDescriptors ? limit.rlim_cur : mostDescriptors;
    for (auto descriptor = static_cast<rlim_t>(first); descriptor < end; ++descriptor) {
        ::syscall(SYS_close, static_cast<int>(descriptor));
    }
}

KIVCLAIM_UNSANITIZED void endHere() noexcept
{
    for (;;) {
        ::syscall(SYS_exit_group, notStarted);
    }
}

KIVCLAIM_UNSANITIZED void startTool(ToolStart& start) noexcept
{
    start.parent = static_cast<pid_t>(::syscall(SYS_getpid));
    start.processDescriptor = -1;
    start.errorNumber = 0;
    start.process = cloneTool(start, CLONE_PIDFD);
    if (start.process < 0 && (errno == EMFILE || errno == ENFILE)) {
        start.process = cloneTool(start, 0);  // the child is then asked from time to time
    }
    if (start.process < 0) {
        start.errorNumber = errno;
    } else if (start.errorNumber != 0) {
        while (::syscall(SYS_wait4, start.process, nullptr, 0, nullptr) < 0 && errno == EINTR) {
        }
        if (start.processDescriptor >= 0) {
            ::syscall(SYS_close, start.processDescriptor);
        }
    }
}

}  // namespace kivclaim::host_internal
