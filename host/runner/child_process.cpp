#include "host/runner/child_process.h"

#include "host/runner/abandoned_children.h"
#include "host/runner/child_environment.h"
#include "host/runner/lost_status.h"
#include "host/runner/process_table.h"
#include "host/runner/run_problem.h"
#include "host/runner/tool_start.h"
#include "host/runner/waiting.h"

#include <sys/single_threaded.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

namespace kivclaim::host_internal {

namespace {

// The number of attempts to start a program while other threads free the environment.
constexpr int mostStarts = 20;

int descriptorOfKernel(int ofKernel)
{
    return ofKernel;
}

std::vector<char*> argumentPointers(const std::vector<std::string>& words)
{
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (const std::string& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str()));  // execve does not write to them
    }
    pointers.push_back(nullptr);
    return pointers;
}

// Asks whether the child has ended, without collecting it. Returns waitid's result; si_pid is 0 while the child runs.
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
    return {&descriptorOfKernel, &::kill};
}

ChildProcess::ChildProcess(const std::vector<std::string>& words, const Pipe& outputPipe, const Pipe& errorPipe,
                           const SystemCalls& systemCalls, std::chrono::milliseconds patienceAtTheEnd)
    : calls(systemCalls), patience(patienceAtTheEnd)
{
    start(words, outputPipe, errorPipe);
}

ChildProcess::~ChildProcess()
{
    if (process != 0) {
        endNow();
    }
}

void ChildProcess::start(const std::vector<std::string>& words, const Pipe& outputPipe, const Pipe& errorPipe)
{
    const std::vector<char*> arguments = argumentPointers(words);
    int errorNumber = EFAULT;
    const char* reason = nullptr;
    for (int i = 0; i < mostStarts && errorNumber == EFAULT; ++i) {
        const std::vector<char*> environment = childEnvironment(outputPipe);
        ToolStart start{arguments.data(), environment.data(), outputPipe.writeEnd.get(), errorPipe.writeEnd.get()};
        startOnce(start);
        errorNumber = start.errorNumber;
        reason = start.reason;
    }
    if (errorNumber != 0) {
        throw RunProblem{errorNumber, reason != nullptr ? reason : "it cannot be started"};
    }
}

void ChildProcess::startOnce(ToolStart& start)
{
    const ChildStack stack;
    start.stackTop = stack.top();
    const AllSignalsBlocked signals;
    if (mayLoseStatuses(signals)) {
        keeper.startTool(start);
    } else {
        isDescriptorPutOff = __libc_single_threaded != 0;
        start.wantsDescriptor = !isDescriptorPutOff;
        startTool(start);
        if (start.errorNumber == 0 && !isDescriptorPutOff) {
            processDescriptor.reset(calls.processDescriptor(start.processDescriptor));
        }
    }
    if (start.errorNumber == 0) {
        process = start.process;
    }
}

void ChildProcess::openEndDescriptor()
{
    if (isDescriptorPutOff) {
        isDescriptorPutOff = false;
        processDescriptor.reset(calls.processDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0))));
    }
}

ChildProcess::Look ChildProcess::look() noexcept
{
    if (!keeper.isUsed()) {
        return lookDirectly();
    }
    switch (keeper.receive(waitStatus)) {
        case StatusKeeper::Report::none:
            return Look::runs;
        case StatusKeeper::Report::status:
            return Look::hasEnded;
        case StatusKeeper::Report::lost:
            break;
    }
    return Look::isLost;
}

ChildProcess::Look ChildProcess::lookDirectly() noexcept
{
    siginfo_t information;
    if (peek(process, information) != 0) {
        return errno == ECHILD ? Look::isLost : Look::failed;
    }
    if (information.si_pid == 0) {
        return Look::runs;
    }
    waitStatus = rawWaitStatus(information);
    return Look::hasEnded;
}

// Other code of the process has collected the child.
bool ChildProcess::isStatusKnownToKernel() noexcept
{
    if (keeper.isUsed()) {
        return false;
    }
    rememberLostStatus();
    return readLostStatus(processDescriptor, waitStatus);
}

bool ChildProcess::hasEnded()
{
    switch (look()) {
        case Look::runs:
            return false;
        case Look::hasEnded:
            return true;
        case Look::failed:
            throw RunProblem{errno, "its end cannot be waited for"};
        case Look::isLost:
            break;
    }
    const bool isKnown = isStatusKnownToKernel();
    collect();
    if (!isKnown) {
        throw RunProblem{ECHILD, "its status was lost, because the process collected it elsewhere"};
    }
    return true;
}

// A child whose state is unknown is ours until we know that it is not.
bool ChildProcess::isOurs() const
{
    if (process == 0) {
        return false;
    }
    if (keeper.isUsed()) {
        return keeper.isAlive();
    }
    siginfo_t information;
    return peek(process, information) == 0 || errno != ECHILD;
}

bool ChildProcess::hasRunningGroup() const
{
    return isOurs() && hasRunningMembers(process);
}

bool ChildProcess::signalGroup(int signal)
{
    if (!isOurs()) {
        return true;
    }
    const bool reachedGroup = calls.sendSignal(-process, signal) == 0;
    if (!reachedGroup || ::getpgid(process) != process) {
        calls.sendSignal(process, signal);
    }
    return calls.sendSignal(process, 0) == 0 || errno != EPERM;
}

// Other code may have collected the child after hasEnded, which has the status; so this must not block.
int ChildProcess::collect()
{
    if (keeper.isUsed()) {
        keeper.release(patience);
    } else if (process != 0) {
        pid_t collected;
        do {
            collected = ::waitpid(process, nullptr, WNOHANG);
        } while (collected < 0 && errno == EINTR);
        if (collected < 0 && errno != ECHILD) {
            rememberAbandonedChild(process);
        }
    }
    process = 0;
    return waitStatus;
}

void ChildProcess::leaveBehind()
{
    if (keeper.isUsed()) {
        keeper.leaveBehind();
    } else {
        rememberAbandonedChild(process);
    }
    process = 0;
}

void ChildProcess::endNow() noexcept
{
    const bool isReachable = signalGroup(SIGKILL);
    const auto isOver = [this] {
        const Look seen = look();
        return seen == Look::hasEnded || seen == Look::isLost;
    };
    if (isReachable && becomesTrue(patience, isOver)) {
        collect();
    } else {
        leaveBehind();
    }
}

}  // namespace kivclaim::host_internal
