#include "tools/interruption.h"

#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kivclaim::tools {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds betweenLooks{5};
constexpr std::chrono::milliseconds fromTermToKill{200};
constexpr std::chrono::seconds patience{2};
// Wakes the watching thread when there is nothing more to watch.
constexpr int wakeUp = SIGUSR1;

// The parent of a process, and whether it still runs; a process that has gone has parent 0.
pid_t runningParentOf(const std::string& process)
{
    std::ifstream stat("/proc/" + process + "/stat");
    std::string line;
    std::getline(stat, line);
    const std::size_t nameEnd = line.rfind(')');  // the name may contain anything
    if (nameEnd == std::string::npos || nameEnd + 4 > line.size() || line[nameEnd + 2] == 'Z') {
        return 0;
    }
    return static_cast<pid_t>(std::strtol(line.c_str() + nameEnd + 4, nullptr, 10));
}

std::vector<pid_t> runningChildren()
{
    std::vector<pid_t> children;
    const std::unique_ptr<DIR, int (*)(DIR*)> processes(opendir("/proc"), &closedir);
    if (processes == nullptr) {
        return children;
    }
    while (const dirent* const entry = readdir(processes.get())) {
        if (runningParentOf(entry->d_name) == getpid()) {
            children.push_back(static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10)));
        }
    }
    return children;
}

void signalGroups(const std::vector<pid_t>& children, int signal)
{
    for (const pid_t child : children) {
        kill(-child, signal);
        kill(child, signal);
    }
}

}  // namespace

Interruption::Interruption(std::function<bool()> isIdleNow) : isIdle(std::move(isIdleNow))
{
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    sigaddset(&signals, wakeUp);
    pthread_sigmask(SIG_BLOCK, &signals, &maskBefore);
    watcher = std::thread([this] { watch(); });
}

Interruption::~Interruption()
{
    over = true;
    pthread_kill(watcher.native_handle(), wakeUp);
    watcher.join();
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
}

void Interruption::holdWhenInterrupted()
{
    if (interrupted) {
        holding = true;
        for (;;) {
            pause();
        }
    }
}

void Interruption::watch()
{
    while (!over) {
        int signal = 0;
        if (sigwait(&signals, &signal) == 0 && signal != wakeUp) {
            end(signal);
        }
    }
}

// The working thread holds at its next step; until then it may still be starting a program.
void Interruption::end(int signal)
{
    interrupted = true;
    const Clock::time_point start = Clock::now();
    for (;;) {
        const bool noneWillStart = holding || over || isIdle();
        const std::vector<pid_t> children = runningChildren();
        const auto passed = Clock::now() - start;
        if ((noneWillStart && children.empty()) || passed > patience) {
            break;
        }
        signalGroups(children, passed < fromTermToKill ? SIGTERM : SIGKILL);
        std::this_thread::sleep_for(betweenLooks);
    }
    ::signal(signal, SIG_DFL);
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, signal);
    pthread_sigmask(SIG_UNBLOCK, &mask, nullptr);
    raise(signal);
    _exit(128 + signal);
}

}  // namespace kivclaim::tools
