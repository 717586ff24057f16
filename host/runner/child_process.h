// One child process: how it is started, and that it is never forgotten. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_CHILD_PROCESS_H
#define KIVCLAIM_HOST_RUNNER_CHILD_PROCESS_H

#include "host/runner/file_descriptor.h"

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

// The system calls that are replaced to see what the runner does when the kernel is old, or has a child stuck.
struct SystemCalls {
    int (*openProcessDescriptor)(pid_t process);
    int (*sendSignal)(pid_t process, int signal);
};

SystemCalls realSystemCalls();

// A pipe whose ends are closed on exec and lie above the three standard descriptors, also when the process runs with
// some of those closed; the read end does not block.
struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

// Throws RunProblem when there are no descriptors left.
Pipe makePipe();

// A child in its own process group, with standard input from /dev/null, its output in two pipes, no other descriptor,
// default signal handling and the environment of childEnvironment. It is started with posix_spawn: no copy of the
// process is made, however large it is, and no handler of pthread_atfork runs.
//
// The ended child is collected only by `collect`: until then its number, and that of its group, belong to nobody else,
// so a signal cannot meet a stranger.
//
// Threads: belongs to one.
// Ownership: owns the child. Destroyed before `collect`, it kills the group and waits for the child, for at most
// `patience`; a child that does not even end then is left to collectAbandonedChildren.
// Failure: RunProblem when the program cannot be started, or (`hasEnded`) when somebody else collected the child.
class ChildProcess {
public:
    ChildProcess(const std::vector<std::string>& words, const FileDescriptor& outputEnd, const FileDescriptor& errorEnd,
                 const SystemCalls& systemCalls, std::chrono::milliseconds patience);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    // Becomes readable when the child ends; -1 when the kernel gives none, and the child must be asked from time to
    // time.
    int endDescriptor() const { return processDescriptor.get(); }
    void closeEndDescriptor() { processDescriptor.reset(); }

    bool hasEnded();
    // Goes to the group, and to the child itself when it left its group.
    void signalGroup(int signal);
    // The raw wait status of the child, which has ended.
    int collect();
    void leaveBehind();

private:
    bool isOurs() const;
    void endNow() noexcept;

    SystemCalls calls;
    std::chrono::milliseconds patience;
    pid_t process = 0;  // 0: collected, lost or left behind
    int waitStatus = 0;
    FileDescriptor processDescriptor;
};

}  // namespace kivclaim::host_internal

#endif
