#include "tests/process.h"

#include "tests/process_status.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>

namespace tests {

namespace {

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
};

Pipe makePipe()
{
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    return {ends[0], ends[1]};
}

void closeOnce(int& descriptor)
{
    if (descriptor >= 0) {
        close(descriptor);
    }
    descriptor = -1;
}

// In the child, after its other variables: what seen_paths reads, before whatever else is preloaded.
void showSeenPaths(const std::vector<std::pair<std::string, std::string>>& seenPaths)
{
    std::string lines;
    for (const auto& [folder, path] : seenPaths) {
        lines += std::string(path).append("=").append(folder).append("\n");
    }
    const char* const others = std::getenv("LD_PRELOAD");
    const std::string preloaded = std::string(KIVCLAIM_SEEN_PATHS_LIBRARY) + ":" + (others != nullptr ? others : "");
    setenv("KIVCLAIM_SEEN_PATHS", lines.c_str(), 1);
    setenv("LD_PRELOAD", preloaded.c_str(), 1);
}

// Appends what is there; false at the end.
bool readSome(int descriptor, std::string& text)
{
    char buffer[65536];
    ssize_t length = 0;
    do {
        length = read(descriptor, buffer, sizeof buffer);
    } while (length < 0 && errno == EINTR);
    if (length > 0) {
        text.append(buffer, static_cast<std::size_t>(length));
    }
    return length > 0;
}

}  // namespace

Process::Process(std::string program, std::vector<std::string> arguments)
    : program(std::move(program)), arguments(std::move(arguments))
{
}

Process::~Process()
{
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    closeOnce(toInput);
    closeOnce(fromOutput);
    closeOnce(fromErrors);
}

Process& Process::reads(std::string text)
{
    input = std::move(text);
    return *this;
}

Process& Process::readsFile(const std::string& path)
{
    inputFile = path;
    return *this;
}

Process& Process::writesFile(const std::string& path)
{
    outputFile = path;
    return *this;
}

Process& Process::environment(const std::string& name, const std::string& value)
{
    variables.emplace_back(name, value);
    return *this;
}

Process& Process::sees(const std::string& folder, const std::string& path)
{
    // The current directory of a process is told without links.
    seenPaths.emplace_back(std::filesystem::canonical(folder), path);
    return *this;
}

Ended Process::run()
{
    start();
    return finish();
}

void Process::start()
{
    Pipe in = makePipe();
    Pipe out = makePipe();
    Pipe err = makePipe();
    std::vector<char*> words{program.data()};
    for (std::string& argument : arguments) {
        words.push_back(argument.data());
    }
    words.push_back(nullptr);
    child = fork();
    if (child == 0) {
        for (const auto& [name, value] : variables) {
            setenv(name.c_str(), value.c_str(), 1);
        }
        if (!seenPaths.empty()) {
            showSeenPaths(seenPaths);
        }
        dup2(inputFile.empty() ? in.readEnd : open(inputFile.c_str(), O_RDONLY), STDIN_FILENO);
        dup2(outputFile.empty() ? out.writeEnd : open(outputFile.c_str(), O_WRONLY), STDOUT_FILENO);
        dup2(err.writeEnd, STDERR_FILENO);
        execvp(program.c_str(), words.data());
        _exit(127);
    }
    closeOnce(in.readEnd);
    closeOnce(out.writeEnd);
    closeOnce(err.writeEnd);
    toInput = in.writeEnd;
    fromOutput = out.readEnd;
    fromErrors = err.readEnd;
    fcntl(toInput, F_SETFL, O_NONBLOCK);
}

void Process::write(const std::string& text) const
{
    ASSERT_EQ(::write(toInput, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void Process::writeIgnoringClosedPipe(const std::string& text) const
{
    std::signal(SIGPIPE, SIG_IGN);
    fcntl(toInput, F_SETFL, 0);
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = ::write(toInput, text.data() + done, text.size() - done);
        if (written < 0) {
            EXPECT_EQ(errno, EPIPE);
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    fcntl(toInput, F_SETFL, O_NONBLOCK);
    std::signal(SIGPIPE, SIG_DFL);
}

std::string Process::readLine()
{
    std::size_t end = std::string::npos;
    while ((end = pendingOutput.find('\n')) == std::string::npos && readSome(fromOutput, pendingOutput)) {
    }
    std::string line = pendingOutput.substr(0, end);
    pendingOutput.erase(0, end == std::string::npos ? end : end + 1);
    return line;
}

void Process::awaitError(const std::string& text)
{
    bool more = true;
    while (pendingErrors.find(text) == std::string::npos && more) {
        more = readSome(fromErrors, pendingErrors);
    }
    EXPECT_TRUE(more) << "standard error ended with [" << pendingErrors << "]";
}

void Process::closeOutput()
{
    closeOnce(fromOutput);
}

void Process::signal(int number) const
{
    kill(child, number);
}

long Process::peakKilobytes() const
{
    const std::string kilobytes = processStatus(std::to_string(child), "VmHWM");
    EXPECT_NE(kilobytes, "") << "the process has ended too early";
    return std::atol(kilobytes.c_str());
}

// Feeds the input and collects both outputs at the same time, so that the two sides cannot deadlock.
void Process::drain(Ended& ended)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::size_t fed = 0;
    while (fromOutput >= 0 || fromErrors >= 0) {
        if (fed == input.size()) {
            closeOnce(toInput);
        }
        pollfd waiting[] = {{toInput, POLLOUT, 0}, {fromOutput, POLLIN, 0}, {fromErrors, POLLIN, 0}};
        poll(waiting, 3, -1);
        if (waiting[0].revents != 0) {
            const ssize_t written = ::write(toInput, input.data() + fed, input.size() - fed);
            fed = written < 0 && errno != EAGAIN ? input.size() : fed + (written > 0 ? written : 0);
        }
        if (waiting[1].revents != 0 && !readSome(fromOutput, ended.output)) {
            closeOnce(fromOutput);
        }
        if (waiting[2].revents != 0 && !readSome(fromErrors, ended.errors)) {
            closeOnce(fromErrors);
        }
    }
    closeOnce(toInput);
    std::signal(SIGPIPE, SIG_DFL);
}

Ended Process::finish()
{
    Ended ended;
    ended.output = std::move(pendingOutput);
    ended.errors = std::move(pendingErrors);
    drain(ended);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    child = -1;
    ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    ended.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return ended;
}

TemporaryFolder::TemporaryFolder()
{
    std::string pattern = std::filesystem::temp_directory_path() / "kivclaim-test-XXXXXX";
    EXPECT_NE(mkdtemp(pattern.data()), nullptr);
    folder = pattern;
}

TemporaryFolder::~TemporaryFolder()
{
    std::filesystem::remove_all(folder);
}

void TemporaryFolder::addFile(const std::string& name, const std::string& content) const
{
    std::ofstream(folder + "/" + name) << content;
}

void TemporaryFolder::addScript(const std::string& name, const std::string& body) const
{
    addFile(name, "#!/bin/sh\n" + body);
    std::filesystem::permissions(folder + "/" + name, std::filesystem::perms::owner_all);
}

std::string TemporaryFolder::contentOf(const std::string& name) const
{
    std::ostringstream content;
    content << std::ifstream(folder + "/" + name).rdbuf();
    return content.str();
}

}  // namespace tests
