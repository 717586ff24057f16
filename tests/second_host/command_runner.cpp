// The second host's command runner: fork, exec, read the lines, wait. Its own records begin with "second host: ".
#include "framework/cfiexecpipe.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sstream>

#include <fcntl.h>

namespace {

using Clock = std::chrono::steady_clock;
using ztfi_pdk_4_4::EFiExecPipe;

struct Child {
    pid_t process;
    int output;
};

std::vector<std::string> wordsOf(const std::string& command)
{
    std::istringstream stream(command);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

[[noreturn]] void refuse(const std::string& command, int errorNumber)
{
    const std::string message = command + ": " + std::strerror(errorNumber);
    throw EFiExecPipe{message, std::wstring(message.begin(), message.end()), errorNumber, 0};
}

// In the child; tells the parent through `report` when there is nothing to run.
[[noreturn]] void become(std::vector<std::string> words, int output, int report)
{
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    dup2(output, STDOUT_FILENO);
    execv(arguments[0], arguments.data());
    const int problem = errno;
    _exit(write(report, &problem, sizeof problem) == sizeof problem ? 127 : 126);
}

Child start(const std::string& command)
{
    const std::vector<std::string> words = wordsOf(command);
    int output[2];
    int report[2];
    if (words.empty() || pipe2(output, O_CLOEXEC) != 0 || pipe2(report, O_CLOEXEC) != 0) {
        refuse(command, words.empty() ? EINVAL : errno);
    }
    const pid_t process = fork();
    if (process == 0) {
        become(words, output[1], report[1]);
    }
    close(output[1]);
    close(report[1]);
    int problem = process < 0 ? errno : 0;
    const bool hasFailed = process < 0 || read(report[0], &problem, sizeof problem) > 0;
    close(report[0]);
    if (hasFailed) {
        close(output[0]);
        waitpid(process, nullptr, 0);
        refuse(command, problem);
    }
    return {process, output[0]};
}

// What the child writes until its end, or until the time is over.
std::string readAll(int descriptor, Clock::time_point end)
{
    std::string text;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        pollfd waiting{descriptor, POLLIN, 0};
        if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
            return text;
        }
        char buffer[512];
        const ssize_t length = read(descriptor, buffer, sizeof buffer);
        if (length <= 0) {
            return text;
        }
        text.append(buffer, static_cast<std::size_t>(length));
    }
}

int waitFor(pid_t process, Clock::time_point end)
{
    if (Clock::now() >= end) {
        kill(process, SIGKILL);
    }
    int status = 0;
    waitpid(process, &status, 0);
    return status;
}

}  // namespace

ztfi_pdk_4_4::CFiExecPipePosix::CFiExecPipePosix(int)
{
}

int ztfi_pdk_4_4::CFiExecPipeBase::Exec(std::string command, std::vector<std::string>& output, std::string,
                                        unsigned long timeoutSeconds, std::string, std::string, std::string)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(timeoutSeconds);
    const Child child = start(command);
    std::istringstream text(readAll(child.output, end));
    close(child.output);
    const int status = waitFor(child.process, end);
    for (std::string line; std::getline(text, line);) {
        output.push_back(line);
    }
    if (traceLog.get() != nullptr) {
        traceLog->trace(ZTFI_TRACE_LEVEL_DETAIL, "second host: [%s] gave %zu lines", command.c_str(), output.size());
    }
    if (status == 0) {
        return 0;
    }
    lastFailure.message = command + " has failed";
    lastFailure.waitStatus = status;
    return -1;
}
