#include "tools/recording/command_capture.h"

#include "machine/descriptor.h"
#include "tools/recorded_commands.h"
#include "tools/watched_program.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>
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

std::vector<std::string> wordsOf(const std::string& command)
{
    std::vector<std::string> words;
    std::istringstream stream(command);
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

// The status that waitpid() gives; nothing for a run that had to be killed. Throws std::system_error.
std::optional<int> runTo(int output, int errors, const std::string& command)
{
    WatchedProgram program({wordsOf(command),
                            environmentOfTools(),
                            {{output, STDOUT_FILENO}, {errors, STDERR_FILENO}},
                            wordsOf(command).front(),
                            longestRun});
    while (!program.status() && !program.isLate()) {
        std::this_thread::sleep_for(betweenLooks);
    }
    return program.status();
}

}  // namespace

CapturedCommand capture(const std::string& command)
{
    CapturedCommand captured;
    const Descriptor output(::memfd_create("output", MFD_CLOEXEC));
    const Descriptor errors(::memfd_create("errors", MFD_CLOEXEC));
    const Clock::time_point begin = Clock::now();
    std::optional<int> status;
    try {
        if (!output.isOpen() || !errors.isOpen()) {
            throw std::system_error(errno, std::generic_category());
        }
        status = runTo(output.get(), errors.get(), command);
    } catch (const std::system_error& error) {
        captured.status = error.code().value() == ENOENT ? missingProgram : "";
        captured.problem = std::strerror(error.code().value());
        return captured;
    }
    captured.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    captured.output = contentOf(output.get());
    captured.errors = contentOf(errors.get());
    if (!status) {
        captured.problem = "it did not end within 600 seconds";
    } else if (WIFSIGNALED(*status)) {
        captured.status = "signal " + std::to_string(WTERMSIG(*status)) + "\n";
    } else {
        captured.status = std::to_string(WEXITSTATUS(*status)) + "\n";
    }
    return captured;
}

}  // namespace kivclaim::tools
