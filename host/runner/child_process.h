// One child process: starts it, and makes sure that it is collected. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_CHILD_PROCESS_H
#define KIVCLAIM_HOST_RUNNER_CHILD_PROCESS_H

#include "host/runner/descriptors.h"
#include "host/runner/status_keeper.h"

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

// System calls that tests replace, to see what the runner does when the kernel is old or a child is stuck.
struct SystemCalls {
    // Gets the descriptor that becomes readable when the child ends, and returns the one to use; -1 is none.
    int (*processDescriptor)(int ofKernel);
    int (*sendSignal)(pid_t process, int signal);
};

SystemCalls realSystemCalls();

// A child in its own process group, without a terminal, with standard input from the null device, its output in two
// pipes, no other descriptor, default signal handling and the environment of childEnvironment. It inherits everything
// else from the process and its thread; see host/command_runner.h. The kernel kills it when the process ends, for
// whatever reason, except a program that changes its user.
//
// The ended child is collected only by `collect`: until then its process and group IDs cannot be reused, so no signal
// hits another process. In a process that would lose the status of a child, a StatusKeeper runs between the two.
//
// Threads: belongs to the thread that created it, which must not end while the child runs: the kernel would kill the
// child.
// Ownership: owns the child. If it is destroyed before `collect`, it kills the group and waits for the child, for at
// most `patience`; a child that still runs then is left to collectAbandonedChildren.
// Failure: RunProblem when the program cannot be started, or (`hasEnded`) when the kernel cannot tell whether it ended.
class ChildProcess {
public:
    // The output's pipe must be empty.
    ChildProcess(const std::vector<std::string>& words, const Pipe& outputPipe, const Pipe& errorPipe,
                 const SystemCalls& systemCalls, std::chrono::milliseconds patience);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    // Becomes readable when the child ends; -1 when there is none (yet), and hasEnded must be called from time to time.
    int endDescriptor() const { return keeper.isUsed() ? keeper.descriptor() : processDescriptor.get(); }
    void closeEndDescriptor() { processDescriptor.reset(); }
    // In a process with a single thread, where no other code can collect the child meanwhile, it is opened only when
    // the child must be waited for: most tools end before.
    bool canOpenEndDescriptor() const { return isDescriptorPutOff; }
    void openEndDescriptor();

    bool hasEnded();
    // Kills its process group, including the child if it has not been collected.
    bool hasRunningGroup() const;
    // Signals the group, and the child itself if it left its group. False when the child runs as another user, which
    // the process may not signal.
    bool signalGroup(int signal);
    // The raw wait status of the child, which has ended.
    int collect();
    void leaveBehind();

private:
    enum class Look { runs, hasEnded, isLost, failed };

    void start(const std::vector<std::string>& words, const Pipe& outputPipe, const Pipe& errorPipe);
    void startOnce(ToolStart& start);
    Look look() noexcept;
    Look lookDirectly() noexcept;
    bool isStatusKnownToKernel() noexcept;
    bool isOurs() const;
    void endNow() noexcept;

    SystemCalls calls;
    std::chrono::milliseconds patience;
    pid_t process = 0;  // 0: collected, lost or abandoned
    int waitStatus = 0;
    bool isDescriptorPutOff = false;
    FileDescriptor processDescriptor;
    StatusKeeper keeper;
};

}  // namespace kivclaim::host_internal

#endif
