#include "tools/interruption.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
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

struct Process {
    pid_t number = 0;
    pid_t parent = 0;
    pid_t group = 0;
    bool runs = false;
};

Process processAt(const std::string& number)
{
    std::ifstream stat("/proc/" + number + "/stat");
    std::string line;
    std::getline(stat, line);
    const std::size_t nameEnd = line.rfind(')');  // the name may contain anything
    Process process;
    if (nameEnd != std::string::npos) {
        char state = 'Z';
        std::istringstream(line.substr(nameEnd + 1)) >> state >> process.parent >> process.group;
        process.number = static_cast<pid_t>(std::strtol(number.c_str(), nullptr, 10));
        process.runs = state != 'Z' && state != 'X';
    }
    return process;
}

std::vector<Process> runningProcesses()
{
    std::vector<Process> processes;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc"), &closedir);
    while (const dirent* const entry = folder != nullptr ? readdir(folder.get()) : nullptr) {
        const Process process = processAt(entry->d_name);
        if (process.runs) {
            processes.push_back(process);
        }
    }
    return processes;
}

// Adds the groups of the children to `groups`, and tells whether anybody of the groups still runs.
bool anybodyRuns(std::set<pid_t>& groups)
{
    const std::vector<Process> processes = runningProcesses();
    for (const Process& process : processes) {
        if (process.parent == getpid() && process.group != getpgrp()) {
            groups.insert(process.group);
        }
    }
    return std::any_of(processes.begin(), processes.end(),
                       [&](const Process& process) { return groups.count(process.group) != 0; });
}

void signalGroups(const std::set<pid_t>& groups, int signal)
{
    for (const pid_t group : groups) {
        kill(-group, signal);
    }
}

bool isIgnored(int signal)
{
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

Interruption::Interruption(std::function<bool()> isIdleNow) : isIdle(std::move(isIdleNow))
{
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        if (!isIgnored(signal)) {
            sigaddset(&signals, signal);
        }
    }
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
        const bool isWakeUp = sigwait(&signals, &signal) != 0 || (signal == wakeUp && over);
        if (!isWakeUp) {
            end(signal);
        }
    }
}

// The working thread holds at its next step; until then it may still be starting a program.
void Interruption::end(int signal)
{
    interrupted = true;
    const Clock::time_point start = Clock::now();
    std::set<pid_t> groups;
    for (;;) {
        const bool noneWillStart = holding || over || isIdle();
        const bool someRun = anybodyRuns(groups);
        const auto passed = Clock::now() - start;
        if ((noneWillStart && !someRun) || passed > patience) {
            break;
        }
        signalGroups(groups, passed < fromTermToKill ? SIGTERM : SIGKILL);
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
