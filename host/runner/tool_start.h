// Starts a program. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_TOOL_START_H
#define KIVCLAIM_HOST_RUNNER_TOOL_START_H

#include <sys/types.h>

#include <csignal>
#include <cstddef>

// The sanitizers' bookkeeping belongs to the parent; a process that shares or copies its memory must not disturb it.
#if defined(__clang__) || defined(__GNUC__)
#define KIVCLAIM_UNSANITIZED __attribute__((no_sanitize("address", "thread", "undefined")))
#else
#define KIVCLAIM_UNSANITIZED
#endif

namespace kivclaim::host_internal {

// While it lives, every signal waits, those of the thread library included, so that no handler of the process runs in
// the child before the child has put its own signal handling in order.
//
// Threads: belongs to the one that made it.
class AllSignalsBlocked {
public:
    AllSignalsBlocked();
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
    ~AllSignalsBlocked();

    bool wasBlockedBefore(int signal) const { return ((before >> static_cast<unsigned>(signal - 1)) & 1U) != 0; }

private:
    unsigned long long before = 0;  // a signal mask as the kernel has it
};

// What the child runs on until it executes the program.
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
    static constexpr std::size_t size = std::size_t{128} << 10;  // as a wrapper of execve may want it
    void* memory;
};

// What a program is started with, and what came of it.
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
        -1;  // becomes readable when the program ends; -1 when the kernel gives none, or none is wanted
    int errorNumber = 0;
    const char* reason = nullptr;  // of the error, where it is not the program's
};

// Starts the program in a process group of its own, and in a session of its own when the process has a terminal, so
// that the program has none; with the three descriptors as its standard ones and no other, with default signal
// handling, and so that the kernel kills it when the calling thread ends. Fills `start`.
//
// Not posix_spawn, because that cannot ask for the last: the parent-death signal belongs to the child and has to be set
// between its start and the program's. What is done is the same otherwise: the child shares the parent's memory and
// the parent waits until the program has taken its place, so no copy is made, however large the process is, and no
// handler of pthread_atfork runs. The signal comes when the thread that started the child ends; a run is synchronous,
// so its thread ends during it only with the process, or by leaving the run, which ends the tool anyway.
//
// All signals must be blocked. Async-signal-safe, so that a copy of the process may call it as well.
void startTool(ToolStart& start) noexcept;

// The steps of it that a copy of the process needs for itself as well, also async-signal-safe. Each sets errno.
bool endsWithItsParent(pid_t parent) noexcept;  // from now on; false when the caller has another parent already
void resetSignals() noexcept;                   // to default handling; the mask stays
void closeDescriptorsFrom(int first) noexcept;
[[noreturn]] void endHere() noexcept;

}  // namespace kivclaim::host_internal

#endif
