#include "tools/recording/command_capture.h"

#include "machine/descriptor.h"
#include "tools/recorded_commands.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sstream>
#include <string_view>
#include <thread>
#include <vector>

using kivclaim::machine::Descriptor;

namespace kivclaim::tools {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds longestRun{600};
constexpr std::chrono::milliseconds betweenLooks{2};
// As much of an outcome as is read again.
constexpr std::size_t longestText = 16UL * 1024 * 1024;

std::vector<char*> pointersTo(std::vector<std::string>& words)
{
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environmentOfTools()
{
    std::vector<std::string> variables = {"LC_ALL=C", "LVM_SUPPRESS_FD_WARNINGS=1"};
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text(*variable);
        const std::string_view name = text.substr(0, text.find('='));
        if (name != "LC_ALL" && name != "LVM_SUPPRESS_FD_WARNINGS" && name != "LANGUAGE") {
            variables.emplace_back(text);
        }
    }
    return variables;
}

std::string contentOf(int file)
{
    std::string text(static_cast<std::size_t>(::lseek(file, 0, SEEK_END)), '\0');
    text.resize(std::min(text.size(), longestText));
    const ssize_t count = ::pread(file, text.data(), text.size(), 0);
    text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return text;
}

// 0, or why it was not started.
int start(const std::string& command, int output, int errors, pid_t& child)
{
    std::vector<std::string> words;
    std::istringstream stream(command);
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    std::vector<std::string> environment = environmentOfTools();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    const int problem = ::posix_spawn(&child, words.front().c_str(), &actions, nullptr, pointersTo(words).data(),
                                      pointersTo(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    return problem;
}

// The status that waitpid() gives; -1 for a run that had to be killed.
int waitFor(pid_t child)
{
    int status = 0;
    const Clock::time_point latest = Clock::now() + longestRun;
    for (;;) {
        const pid_t ended = ::waitpid(child, &status, WNOHANG);
        if (ended == child) {
            return status;
        }
        if ((ended < 0 && errno != EINTR) || Clock::now() > latest) {
            ::kill(child, SIGKILL);
            ::waitpid(child, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(betweenLooks);
    }
}

}  // namespace

CapturedCommand capture(const std::string& command)
{
    CapturedCommand captured;
    const Descriptor output(::memfd_create("output", MFD_CLOEXEC));
    const Descriptor errors(::memfd_create("errors", MFD_CLOEXEC));
    const Clock::time_point begin = Clock::now();
    pid_t child = -1;
    const int problem = output.isOpen() && errors.isOpen() ? start(command, output.get(), errors.get(), child) : errno;
    if (problem != 0) {
        captured.status = problem == ENOENT ? missingProgram : "";
        captured.problem = std::strerror(problem);
        return captured;
    }
    const int status = waitFor(child);
    captured.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    captured.output = contentOf(output.get());
    captured.errors = contentOf(errors.get());
    if (status < 0) {
        captured.problem = "it did not end within 600 seconds";
    } else if (WIFSIGNALED(status)) {
        captured.status = "signal " + std::to_string(WTERMSIG(status)) + "\n";
    } else {
        captured.status = std::to_string(WEXITSTATUS(status)) + "\n";
    }
    return captured;
}

}  // namespace kivclaim::tools
