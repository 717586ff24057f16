// One child process: how it is started, and that it is never forgotten. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_CHILD_PROCESS_H
#define KIVCLAIM_HOST_RUNNER_CHILD_PROCESS_H

#include "host/runner/descriptors.h"
#include "host/runner/status_keeper.h"

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

// The system calls that are replaced to see what the runner does when the kernel is old, or has a child stuck.
struct SystemCalls {
    // Takes the descriptor that becomes readable when the child ends, and gives the one to use; -1 is none.
    int (*processDescriptor)(int ofKernel);
    int (*sendSignal)(pid_t process, int signal);
};

SystemCalls realSystemCalls();

// A child in its own process group, without a terminal, with standard input from the null
// device, its output in two pipes, no other descriptor, default signal handling and the environment of
// childEnvironment. It inherits everything else from the process and its thread: user and groups, working and root
// directory, file mask, resource limits, control group, namespaces and capabilities, nice value, scheduling policy,
// processors and memory nodes, priority of input and output, and how readily it is killed for lack of memory. The
// kernel kills it when the process ends, however that ends; a program that changes its user is not reached by that.
//
// The ended child is collected only by `collect`: until then its process and group IDs cannot be reused, so no signal
// hits another process. In a process that would lose the status of a child, a StatusKeeper is between the two.
//
// Threads: belongs to the one that made it, which must not end while the child runs: the kernel would kill the child.
// Ownership: owns the child. Destroyed before `collect`, it kills the group and waits for the child, for at most
// `patience`; a child that does not even end then is left to collectAbandonedChildren.
// Failure: RunProblem when the program cannot be started, or (`hasEnded`) when its end cannot be learnt.
class ChildProcess {
public:
    // The output's pipe must be empty.
    ChildProcess(const std::vector<std::string>& words, const Pipe& outputPipe, const Pipe& errorPipe,
                 const SystemCalls& systemCalls, std::chrono::milliseconds patience);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    // Becomes readable when the child ends; -1 when there is none (yet), and the child must be asked from time to time.
    int endDescriptor() const { return keeper.isUsed() ? keeper.descriptor() : processDescriptor.get(); }
    void closeEndDescriptor() { processDescriptor.reset(); }
    // In a process with a single thread, where nobody can collect the child meanwhile, it is opened only when the child
    // must be waited for: most tools end before.
    bool canOpenEndDescriptor() const { return isDescriptorPutOff; }
    void openEndDescriptor();

    bool hasEnded();
    // Of its group, the child included when it has not been collected.
    bool hasRunningGroup() const;
    // Goes to the group, and to the child itself when it left its group. False when the child runs as another user,
    // whom the process may not signal.
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
    pid_t process = 0;  // 0: collected, lost or left behind
    int waitStatus = 0;
    bool isDescriptorPutOff = false;
    FileDescriptor processDescriptor;
    StatusKeeper keeper;
};

}  // namespace kivclaim::host_internal

#endif
