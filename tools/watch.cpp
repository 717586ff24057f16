#include "tools/watch.h"

#include "host/printable_text.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <system_error>

namespace kivclaim::tools {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patienceBeforeLine{2};
constexpr int millisecondsBetweenLines = 200;
constexpr std::chrono::milliseconds betweenLooks{5};
// One second more than the bundled host gives a program from SIGTERM to SIGKILL: another program may do the same.
constexpr std::chrono::seconds fromTermToKill{3};
constexpr std::chrono::seconds patienceAfterSignal{4};
constexpr char clearedLine[] = "\r\x1b[K";

bool isIgnored(int signal)
{
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

int checkedDescriptor(int descriptor)
{
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot watch for signals");
    }
    return descriptor;
}

sigset_t endingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        if (!isIgnored(signal)) {
            sigaddset(&signals, signal);
        }
    }
    return signals;
}

std::string lineAbout(const kivclaim::host::RunningCommand& command, Clock::time_point now)
{
    std::string line = "kivclaim: waiting for " + kivclaim::host::printableText(command.command);
    if (command.latestEnd != Clock::time_point::max()) {
        const auto left = std::chrono::ceil<std::chrono::seconds>(command.latestEnd - now).count();
        line += ", for " + std::to_string(left > 0 ? left : 0) + " s at most";
    }
    return line;
}

// A program that the bundled host does not run.
struct OtherProgram {
    kivclaim::host::RunningCommand command;
    pid_t group;
};

std::mutex otherLock;
std::optional<OtherProgram> other;

void signalOther(int signal)
{
    const std::lock_guard<std::mutex> guard(otherLock);
    if (other) {
        kill(-other->group, signal);
    }
}

}  // namespace

WatchedGroup::WatchedGroup(const std::string& name, pid_t group, Clock::time_point latestEnd)
{
    const std::lock_guard<std::mutex> guard(otherLock);
    other = OtherProgram{{name, Clock::now(), latestEnd}, group};
}

WatchedGroup::~WatchedGroup()
{
    const std::lock_guard<std::mutex> guard(otherLock);
    other.reset();
}

std::atomic<Watch*> Watch::current{nullptr};

Watch::Watch(Shown shown)
    : scope(runner),
      isShown(shown == Shown::yes),
      signals(endingSignals()),
      signalDescriptor(checkedDescriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK))),
      overDescriptor(checkedDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)))
{
    pthread_sigmask(SIG_BLOCK, &signals, &maskBefore);
    current = this;
    watcher = std::thread([this] { watch(); });
}

Watch::~Watch()
{
    eventfd_write(overDescriptor, 1);
    watcher.join();
    current = nullptr;
    hide();
    pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    close(signalDescriptor);
    close(overDescriptor);
}

void Watch::beforeOutput()
{
    Watch* const watch = current;
    if (watch == nullptr) {
        return;
    }
    while (watch->interrupted) {
        pause();
    }
    if (watch->isShown) {
        watch->hide();
    }
}

void Watch::watch()
{
    pollfd sources[] = {{signalDescriptor, POLLIN, 0}, {overDescriptor, POLLIN, 0}};
    while (sources[1].revents == 0) {
        poll(sources, 2, isShown ? millisecondsBetweenLines : -1);
        signalfd_siginfo signal{};
        if (read(signalDescriptor, &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
            end(static_cast<int>(signal.ssi_signo));
        }
        if (isShown) {
            show();
        }
    }
}

std::vector<kivclaim::host::RunningCommand> Watch::awaited() const
{
    std::vector<kivclaim::host::RunningCommand> all = runner.running();
    const std::lock_guard<std::mutex> guard(otherLock);
    if (other) {
        all.push_back(other->command);
    }
    return all;
}

void Watch::show()
{
    const auto running = awaited();
    const Clock::time_point now = Clock::now();
    const std::lock_guard<std::mutex> guard(lineLock);
    if (running.empty() || now - running.front().start < patienceBeforeLine) {
        return;
    }
    hasLine = true;
    std::fprintf(stderr, "%s%s", clearedLine, lineAbout(running.front(), now).c_str());
}

void Watch::hide()
{
    const std::lock_guard<std::mutex> guard(lineLock);
    if (hasLine) {
        hasLine = false;
        std::fputs(clearedLine, stderr);
    }
}

void Watch::end(int signal)
{
    interrupted = true;
    runner.cancel();
    signalOther(SIGTERM);
    const Clock::time_point begin = Clock::now();
    while (!awaited().empty() && Clock::now() < begin + patienceAfterSignal) {
        std::this_thread::sleep_for(betweenLooks);
        if (Clock::now() > begin + fromTermToKill) {
            signalOther(SIGKILL);
        }
    }
    hide();
    ::signal(signal, SIG_DFL);
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, signal);
    pthread_sigmask(SIG_UNBLOCK, &mask, nullptr);
    raise(signal);
    _exit(128 + signal);
}

}  // namespace kivclaim::tools
