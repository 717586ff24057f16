// Starts a program. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_TOOL_START_H
#define KIVCLAIM_HOST_RUNNER_TOOL_START_H

#include <sys/types.h>

#include <csignal>
#include <cstddef>

// The sanitizers' state belongs to the parent; a process that shares or copies its memory must not change it.
#if defined(__clang__) || defined(__GNUC__)
#define KIVCLAIM_UNSANITIZED __attribute__((no_sanitize("address", "thread", "undefined")))
#else
#define KIVCLAIM_UNSANITIZED
#endif

namespace kivclaim::host_internal {

// While it exists, every signal is blocked, also those of the thread library, so that no handler of the process runs in
// the child before the child has reset its own signal handling.
//
// Threads: belongs to the thread that created it.
class AllSignalsBlocked {
public:
    AllSignalsBlocked();
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
    ~AllSignalsBlocked();

    bool wasBlockedBefore(int signal) const { return ((before >> static_cast<unsigned>(signal - 1)) & 1U) != 0; }

private:
    unsigned long long before = 0;  // a signal mask in the kernel's format
};

// The child's stack until it executes the program.
//
// Failure: RunProblem when there is no memory.
class ChildStack {
public:
    ChildStack();
    ChildStack(const ChildStack&) = delete;
    ChildStack& operator=(const ChildStack&) = delete;
    ~ChildStack();

    void* top() const { return static_cast<char*>(memory) + size; }

private:
    static constexpr std::size_t size = std::size_t{128} << 10;  // enough for a wrapper of execve
    void* memory;
};

// The parameters of a start, and its outcome.
struct ToolStart {
    char* const* arguments;  // the first is the program's path
    char* const* environment;
    int outputEnd;
    int errorEnd;
    void* stackTop = nullptr;
    bool wantsDescriptor = true;

    pid_t parent = 0;
    pid_t process = 0;  // of the program, when there was no error
    int processDescriptor =
        -1;  // becomes readable when the program ends; -1 when the kernel gives none, or none was requested
    int errorNumber = 0;
    const char* reason = nullptr;  // the cause of the error, unless the program itself is the cause
};

// Starts the program in its own process group, with the three descriptors as its standard ones and no other, and with
// default signal handling. If the process has a terminal, the program gets its own session, so that it has no terminal.
// The kernel kills the program when the calling thread ends. Fills `start`.
//
// posix_spawn cannot request that last: the parent-death signal has to be set in the child before the program starts.
// Otherwise this works like posix_spawn: the child shares the parent's memory and the parent waits until the child has
// executed the program, so nothing is copied, however large the process is, and no handler of pthread_atfork runs. The
// signal is sent when the thread that started the child ends; a run is synchronous, so its thread ends during it only
// with the process, or by leaving the run, which ends the tool anyway.
//
// All signals must be blocked. Async-signal-safe, so that a fork of the process may call it as well.
void startTool(ToolStart& start) noexcept;

// The steps of it that a fork of the process also needs, async-signal-safe too. Each sets errno.
bool endsWithItsParent(pid_t parent) noexcept;  // from now on; false when the caller already has another parent
void resetSignals() noexcept;                   // to default handling; the mask stays
void closeDescriptorsFrom(int first) noexcept;
[[noreturn]] void endHere() noexcept;

}  // namespace kivclaim::host_internal

#endif
