#include "host/runner/child_process.h"

#include "host/runner/abandoned_children.h"
#include "host/runner/child_environment.h"
#include "host/runner/run_problem.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

namespace kivclaim::host_internal {

namespace {

constexpr int firstOrdinaryDescriptor = STDERR_FILENO + 1;

int openProcessDescriptorOfKernel(pid_t process)
{
    return static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
}

void requireSuccess(int errorNumber, const char* reason)
{
    if (errorNumber != 0) {
        throw RunProblem{errorNumber, reason};
    }
}

Pipe openPipe()
{
    int ends[2];
    requireSuccess(::pipe2(ends, O_CLOEXEC) != 0 ? errno : 0, "there is no descriptor left for its output");
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

bool isAboveStandardDescriptors(const Pipe& pipe)
{
    return std::min(pipe.readEnd.get(), pipe.writeEnd.get()) >= firstOrdinaryDescriptor;
}

// A process that runs with a standard descriptor closed gets that number for a pipe, where the child's own standard
// descriptors would overwrite it, and where another thread that prints would write into it. While such a pipe is open,
// the next one lies higher.
Pipe openPipeAboveStandardDescriptors()
{
    Pipe pipe = openPipe();
    return isAboveStandardDescriptors(pipe) ? std::move(pipe) : openPipeAboveStandardDescriptors();
}

// What becomes of the child's descriptors.
class SpawnFileActions {
public:
    SpawnFileActions() { requireSuccess(::posix_spawn_file_actions_init(&actions), "its start cannot be prepared"); }
    SpawnFileActions(const SpawnFileActions&) = delete;
    SpawnFileActions& operator=(const SpawnFileActions&) = delete;
    ~SpawnFileActions() { ::posix_spawn_file_actions_destroy(&actions); }

    void setStandardDescriptors(int outputEnd, int errorEnd)
    {
        require(::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        require(::posix_spawn_file_actions_adddup2(&actions, outputEnd, STDOUT_FILENO));
        require(::posix_spawn_file_actions_adddup2(&actions, errorEnd, STDERR_FILENO));
        require(::posix_spawn_file_actions_addclosefrom_np(&actions, firstOrdinaryDescriptor));
    }

    const posix_spawn_file_actions_t* get() const { return &actions; }

private:
    static void require(int errorNumber) { requireSuccess(errorNumber, "its descriptors cannot be prepared"); }

    posix_spawn_file_actions_t actions;
};

// Signals and process group of the child.
class SpawnAttributes {
public:
    SpawnAttributes()
    {
        requireSuccess(::posix_spawnattr_init(&attributes), "its start cannot be prepared");
        // Not sigfillset: it leaves out the two signals of the thread library, which would stay ignored in the child.
        sigset_t allSignals;
        std::memset(&allSignals, 0xFF, sizeof allSignals);
        sigset_t noSignals;
        sigemptyset(&noSignals);
        ::posix_spawnattr_setsigdefault(&attributes, &allSignals);
        ::posix_spawnattr_setsigmask(&attributes, &noSignals);
        ::posix_spawnattr_setpgroup(&attributes, 0);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes); }

    const posix_spawnattr_t* get() const { return &attributes; }

private:
    posix_spawnattr_t attributes;
};

std::vector<char*> argumentPointers(const std::vector<std::string>& words)
{
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (const std::string& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str()));  // posix_spawn does not write to them
    }
    pointers.push_back(nullptr);
    return pointers;
}

pid_t spawn(const std::vector<std::string>& words, int outputEnd, int errorEnd)
{
    SpawnFileActions actions;
    actions.setStandardDescriptors(outputEnd, errorEnd);
    const SpawnAttributes attributes;
    const std::vector<char*> arguments = argumentPointers(words);
    const std::vector<char*> environment = childEnvironment();
    pid_t process = 0;
    requireSuccess(
        ::posix_spawn(&process, arguments[0], actions.get(), attributes.get(), arguments.data(), environment.data()),
        "it cannot be started");
    return process;
}

// The status as wait() gives it, made of what waitid() tells.
int rawWaitStatus(const siginfo_t& information)
{
    constexpr int coreDumped = 0x80;
    if (information.si_code == CLD_EXITED) {
        return (information.si_status & 0xFF) << 8;
    }
    return information.si_status | (information.si_code == CLD_DUMPED ? coreDumped : 0);
}

// Asks for the end of the child without collecting it. Returns waitid's result; si_pid is 0 while the child runs.
int peek(pid_t process, siginfo_t& information)
{
    int result;
    do {
        std::memset(&information, 0, sizeof information);
        result = ::waitid(P_PID, static_cast<id_t>(process), &information, WEXITED | WNOHANG | WNOWAIT);
    } while (result != 0 && errno == EINTR);
    return result;
}

}  // namespace

SystemCalls realSystemCalls()
{
    return {&openProcessDescriptorOfKernel, &::kill};
}

Pipe makePipe()
{
    Pipe pipe = openPipeAboveStandardDescriptors();
    requireSuccess(::fcntl(pipe.readEnd.get(), F_SETFL, O_RDONLY | O_NONBLOCK) != 0 ? errno : 0,
                   "its output cannot be read without blocking");
    return pipe;
}

ChildProcess::ChildProcess(const std::vector<std::string>& words, const FileDescriptor& outputEnd,
                           const FileDescriptor& errorEnd, const SystemCalls& systemCalls,
                           std::chrono::milliseconds patienceAtTheEnd)
    : calls(systemCalls), patience(patienceAtTheEnd), process(spawn(words, outputEnd.get(), errorEnd.get()))
{
    processDescriptor.reset(calls.openProcessDescriptor(process));
}

ChildProcess::~ChildProcess()
{
    if (process != 0) {
        endNow();
    }
}

bool ChildProcess::hasEnded()
{
    siginfo_t information;
    if (peek(process, information) != 0) {
        process = 0;
        throw RunProblem{errno, "its status was lost, because the process ignores SIGCHLD or collects every child"};
    }
    if (information.si_pid == 0) {
        return false;
    }
    waitStatus = rawWaitStatus(information);
    return true;
}

bool ChildProcess::isOurs() const
{
    siginfo_t information;
    return process != 0 && peek(process, information) == 0;
}

void ChildProcess::signalGroup(int signal)
{
    if (!isOurs()) {
        return;
    }
    const bool reachedGroup = calls.sendSignal(-process, signal) == 0;
    if (!reachedGroup || ::getpgid(process) != process) {
        calls.sendSignal(process, signal);
    }
}

// Somebody else may have collected the child since hasEnded, which learnt the status; so this must not block.
int ChildProcess::collect()
{
    while (::waitpid(process, nullptr, WNOHANG) < 0 && errno == EINTR) {
    }
    process = 0;
    return waitStatus;
}

void ChildProcess::leaveBehind()
{
    rememberAbandonedChild(process);
    process = 0;
}

void ChildProcess::endNow() noexcept
{
    using Clock = std::chrono::steady_clock;
    constexpr int longestPause = 20;
    const Clock::time_point deadline = Clock::now() + patience;
    signalGroup(SIGKILL);
    pid_t collected;
    int pause = 1;
    while ((collected = ::waitpid(process, nullptr, WNOHANG)) == 0 || (collected < 0 && errno == EINTR)) {
        if (Clock::now() >= deadline) {
            leaveBehind();
            return;
        }
        ::poll(nullptr, 0, pause);
        pause = std::min(2 * pause, longestPause);
    }
    process = 0;
}

}  // namespace kivclaim::host_internal
