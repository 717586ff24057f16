// Watches what the command waits for: shows it on a terminal, and ends it when the command is interrupted.
#ifndef KIVCLAIM_TOOLS_WATCH_H
#define KIVCLAIM_TOOLS_WATCH_H

#include "host/command_runner.h"

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kivclaim::tools {

// While it lives, the process group `group` is a program that the command waits for, in addition to those of the
// bundled host: it is shown as `name`, and ended by a signal that ends the command. Threads: any. One at a time.
// Ownership: does not own the group's processes. Failure: std::bad_alloc.
class WatchedGroup {
public:
    WatchedGroup(const std::string& name, pid_t group, std::chrono::steady_clock::time_point latestEnd);
    WatchedGroup(const WatchedGroup&) = delete;
    WatchedGroup& operator=(const WatchedGroup&) = delete;
    ~WatchedGroup();
};

// While it lives, SIGINT, SIGTERM, SIGHUP and SIGQUIT end the process as they always do, but only after the program
// that it runs has ended, with its process group: such a program is in a group of its own, so a terminal's Ctrl-C does
// not reach it. A signal that the process ignores stays ignored.
//
// What has been waited for two seconds is shown in one line on standard error, until it is over.
//
// Threads: made, before any other thread, by the thread that asks the library; the watching thread is its own.
// Ownership: puts the signal mask back when it ends. One at a time.
// Failure: std::system_error when there is no thread or descriptor left. A program that survives SIGKILL is abandoned
// four seconds after the signal.
class Watch {
public:
    // Whether to show what is waited for: on a terminal, where nothing else is drawn.
    enum class Shown { yes, no };

    explicit Watch(Shown shown);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // To be called before anything is written or begun. Removes the line, and does not return once the process is being
    // ended: what the library answers without its program is no answer. Does nothing without a watch.
    static void beforeOutput();

private:
    std::vector<kivclaim::host::RunningCommand> awaited() const;
    void watch();
    void show();
    void hide();
    [[noreturn]] void end(int signal);

    static std::atomic<Watch*> current;

    kivclaim::host::CommandRunner runner;
    kivclaim::host::CommandRunnerScope scope;
    bool isShown;
    sigset_t signals{};
    sigset_t maskBefore{};
    int signalDescriptor;
    int overDescriptor;
    std::atomic<bool> interrupted{false};
    std::mutex lineLock;
    bool hasLine = false;
    std::thread watcher;  // the last member: it uses all others
};

}  // namespace kivclaim::tools

#endif
