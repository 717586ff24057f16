#include "host/runner/tool_start.h"

#include "host/runner/run_problem.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

// The C library's internal name of clone: the thread sanitizer replaces the public one with a version that does not
// work for a child that shares its parent's memory.
extern "C" int uninterceptedClone(int (*function)(void*), void* stack, int flags, void* argument,
                                  ...) __asm__("__clone");

namespace kivclaim::host_internal {

namespace {

std::atomic<void*> spareStack{nullptr};

constexpr unsigned long long allSignals = ~0ULL;
constexpr int lastSignal = 64;
constexpr int firstOrdinaryDescriptor = STDERR_FILENO + 1;
constexpr int notStarted = 127;
constexpr rlim_t mostDescriptors = rlim_t{1} << 20;  // searched when there is no limit

// Default handling in the kernel's format: all zeros, on every architecture.
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

KIVCLAIM_UNSANITIZED bool isNullDevice(long descriptor)
{
    constexpr unsigned int memoryDevices = 1;
    constexpr unsigned int nullDevice = 3;
    struct stat file;
    return ::syscall(SYS_fstat, descriptor, &file) == 0 && S_ISCHR(file.st_mode) &&
           file.st_rdev == makedev(memoryDevices, nullDevice);
}

// Any other file would be the tool's input, or would block: so it is opened with O_NONBLOCK and checked.
KIVCLAIM_UNSANITIZED bool openInput(ToolStart& start)
{
    const long device = ::syscall(SYS_openat, AT_FDCWD, "/dev/null", O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (device < 0) {
        start.reason = "its standard input, /dev/null, cannot be opened";
        return false;
    }
    if (!isNullDevice(device)) {
        start.reason = "its standard input, /dev/null, is not the null device";
        errno = ENODEV;
        return false;
    }
    return (device == STDIN_FILENO ? ::syscall(SYS_fcntl, device, F_SETFD, 0)
                                   : ::syscall(SYS_dup3, device, STDIN_FILENO, 0)) >= 0 &&
           ::syscall(SYS_fcntl, STDIN_FILENO, F_SETFL, O_RDONLY) == 0;
}

KIVCLAIM_UNSANITIZED bool setStandardDescriptors(ToolStart& start)
{
    return openInput(start) && setDescriptor(start.outputEnd, STDOUT_FILENO) &&
           setDescriptor(start.errorEnd, STDERR_FILENO);
}

// If the process has a terminal, a tool that reads /dev/tty would be stopped until its time limit, so it gets a new
// session without a terminal. Only then: where each session is scheduled as a group (autogroup), a new session waits
// several times as long for a processor on a busy machine.
KIVCLAIM_UNSANITIZED bool separateFromTerminal()
{
    const long terminal = ::syscall(SYS_openat, AT_FDCWD, "/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal < 0 && errno == ENXIO) {
        return ::syscall(SYS_setpgid, 0, 0) == 0;
    }
    return ::syscall(SYS_setsid) >= 0;
}

// A process that had its children begin another namespace of process numbers is not seen from there: it has number 0.
// It waits until the program has taken the child's place, so it is still there.
KIVCLAIM_UNSANITIZED bool endsWithItsHost(pid_t host)
{
    constexpr pid_t notSeen = 0;
    return endsWithItsParent(host) || (errno == ESRCH && endsWithItsParent(notSeen));
}

// Runs in the child, in the parent's memory. execve is called as the C library's function, so that a process which
// replaces it sees the call.
KIVCLAIM_UNSANITIZED int becomeTool(void* argument)
{
    auto& start = *static_cast<ToolStart*>(argument);
    resetSignals();
    if (endsWithItsHost(start.parent) && separateFromTerminal() && setStandardDescriptors(start)) {
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

// The last stack that was used, for the next run: allocating one takes a large part of the time of a start.
ChildStack::ChildStack() : memory(spareStack.exchange(nullptr))
{
    if (memory != nullptr) {
        return;
    }
    memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) {
        throw RunProblem{errno, "there is no memory for its start"};
    }
}

ChildStack::~ChildStack()
{
    void* const surplus = spareStack.exchange(memory);
    if (surplus != nullptr) {
        ::munmap(surplus, size);
    }
}

KIVCLAIM_UNSANITIZED bool endsWithItsParent(pid_t parent) noexcept
{
    if (::syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) != 0) {
        return false;
    }
    errno = ESRCH;
    return ::syscall(SYS_getppid) == parent;
}

KIVCLAIM_UNSANITIZED void resetSignals() noexcept
{
    for (int signal = 1; signal <= lastSignal; ++signal) {
        ::syscall(SYS_rt_sigaction, signal, &defaultHandling, nullptr, sizeof allSignals);
    }
}

// Kernels before 5.9, and some system-call filters, lack close_range.
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
    start.reason = nullptr;
    start.process = cloneTool(start, start.wantsDescriptor ? CLONE_PIDFD : 0);
    // EINVAL comes from emulators that do not support descriptors of processes (pidfd).
    if (start.process < 0 && (errno == EMFILE || errno == ENFILE || errno == EINVAL)) {
        start.process = cloneTool(start, 0);  // the child is then polled
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
