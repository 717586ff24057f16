#include "tools/checked_process.h"

#include "tools/exit_status.h"

#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>

#include <fcntl.h>

namespace kivclaim::tools {

namespace {

using Clock = std::chrono::steady_clock;

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// This process's variables with the others in place of those of the same name.
std::vector<std::string> environmentWith(const std::vector<std::pair<std::string, std::string>>& variables)
{
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string name = std::string(*entry, std::strcspn(*entry, "="));
        bool isReplaced = false;
        for (const auto& variable : variables) {
            isReplaced |= variable.first == name;
        }
        if (!isReplaced) {
            all.emplace_back(*entry);
        }
    }
    for (const auto& [name, value] : variables) {
        all.push_back(name + "=" + value);
    }
    return all;
}

pid_t start(const CheckedProcess& process, int reportEnd)
{
    std::vector<std::string> words = process.arguments;
    words.insert(words.begin(), process.program);
    std::vector<std::string> environment = environmentWith(process.variables);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, reportEnd, checkReportDescriptor);
    if (process.reportsOnStandardError) {
        posix_spawn_file_actions_adddup2(&actions, checkReportDescriptor, STDERR_FILENO);
    }
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    pid_t child = -1;
    const int problem = posix_spawn(&child, process.program.c_str(), &actions, nullptr, pointersTo(words).data(),
                                    pointersTo(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (problem != 0) {
        throw CommandError("cannot start a process for the check: " + std::string(std::strerror(problem)) +
                           "; try again later");
    }
    return child;
}

// True when the process closed the report; false when its time was over.
bool readReport(int descriptor, int seconds, std::string& report)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd waiting{descriptor, POLLIN, 0};
        if (left <= 0 || poll(&waiting, 1, static_cast<int>(left)) == 0) {
            return false;
        }
        std::array<char, 65536> buffer;
        const ssize_t length = read(descriptor, buffer.data(), buffer.size());
        if (length == 0 || (length < 0 && errno != EINTR)) {
            return true;
        }
        if (length > 0) {
            report.append(buffer.data(), static_cast<std::size_t>(length));
        }
    }
}

std::string endingOf(int status)
{
    if (WIFSIGNALED(status)) {
        return "was ended by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
    }
    return WEXITSTATUS(status) != 0 ? "ended with status " + std::to_string(WEXITSTATUS(status)) : "";
}

}  // namespace

CheckedEnd run(const CheckedProcess& process)
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw CommandError("cannot start a process for the check: " + std::string(std::strerror(errno)) +
                           "; try again later");
    }
    const pid_t child = start(process, ends[1]);
    close(ends[1]);
    CheckedEnd end;
    const bool hasEnded = readReport(ends[0], process.seconds, end.report);
    close(ends[0]);
    if (!hasEnded) {
        kill(child, SIGKILL);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    end.ending = hasEnded ? endingOf(status) : "did not end within " + std::to_string(process.seconds) + " seconds";
    return end;
}

}  // namespace kivclaim::tools
