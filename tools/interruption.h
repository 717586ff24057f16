// Ends the command at once when it is interrupted, and the programs that it runs with it.
#ifndef KIVCLAIM_TOOLS_INTERRUPTION_H
#define KIVCLAIM_TOOLS_INTERRUPTION_H

#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

namespace kivclaim::tools {

// While it lives, SIGINT, SIGTERM, SIGHUP and SIGQUIT end the process as they always do, but only when no child is
// left, nor anybody in a child's process group: the runner's children are in groups of their own, so a terminal's
// Ctrl-C does not reach them. A signal that the process ignores stays ignored. Whoever has left a child's group is not
// followed.
//
// Threads: made before any thread that it shall protect; the watching thread is its own.
// Ownership: puts the signal mask back when it ends.
// Failure: who does not even end on SIGKILL is left after two seconds.
class Interruption {
public:
    // `isIdle` tells, on the watching thread, that the working thread neither runs nor will start a program.
    explicit Interruption(std::function<bool()> isIdle);
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    // Called by the working thread before each step; does not return once the process is being ended.
    void holdWhenInterrupted();

private:
    void watch();
    [[noreturn]] void end(int signal);

    std::function<bool()> isIdle;
    sigset_t signals{};
    sigset_t maskBefore{};
    std::atomic<bool> interrupted{false};
    std::atomic<bool> holding{false};
    std::atomic<bool> over{false};
    std::thread watcher;
};

}  // namespace kivclaim::tools

#endif
