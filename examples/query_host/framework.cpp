// A host framework in one file: the eight operations that kivclaim needs of its host. It is kept short. A real runner
// also ends the tool's children, gives the tool an empty standard input, keeps its standard error for the failure
// record, and limits the time between the end of the output and the end of the tool.
#include "framework/cfiexecpipe.h"
#include "framework/cfistringtool.h"
#include "framework/cfitracelog.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sstream>

namespace ztfi_pdk_4_4 {

// No records are kept.
void CFiTraceLog::trace(int, const char*, ...)
{
}

std::vector<std::string> CFiStringTool::tokenize(const std::string& text, const std::string& separators)
{
    std::vector<std::string> pieces;
    std::size_t begin = text.find_first_not_of(separators);
    while (begin != std::string::npos) {
        const std::size_t end = text.find_first_of(separators, begin);
        pieces.push_back(text.substr(begin, end - begin));
        begin = text.find_first_not_of(separators, end);
    }
    return pieces;
}

std::string CFiStringTool::trim(const std::string& text, const std::string& characters)
{
    const std::size_t begin = text.find_first_not_of(characters);
    if (begin == std::string::npos) {
        return "";
    }
    return text.substr(begin, text.find_last_not_of(characters) - begin + 1);
}

// The library never asks for `ignoreCase`.
std::size_t CFiStringTool::find(const std::vector<std::string>& lines, const std::string& text, unsigned long& index,
                                bool)
{
    for (unsigned long line = index; line < lines.size(); ++line) {
        const std::size_t place = lines[line].find(text);
        if (place != std::string::npos) {
            index = line;
            return place;
        }
    }
    return std::string::npos;
}

ACE_String_Base<char> CFiStringTool::str2tstr(const std::string& text)
{
    return {text.data(), text.size()};
}

std::string CFiStringTool::tstr2str(const ACE_String_Base<char>& text)
{
    return {text.c_str(), text.length()};
}

namespace {

using Clock = std::chrono::steady_clock;

EFiExecPipe failureOf(const std::string& message, int errorNumber, int waitStatus)
{
    return {message, std::wstring(message.begin(), message.end()), errorNumber, waitStatus};
}

// A running program, with its output in a pipe.
struct Child {
    pid_t process;
    int output;
};

Child start(const std::string& command)
{
    std::vector<std::string> words = CFiStringTool::tokenize(command, " \t");
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    int ends[2];
    if (words.empty() || access(arguments[0], X_OK) != 0 || pipe2(ends, O_CLOEXEC) != 0) {
        throw failureOf("cannot run " + command + ": " + std::strerror(errno), errno, -1);
    }
    const pid_t process = fork();
    if (process == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    close(ends[1]);
    if (process < 0) {
        close(ends[0]);
        throw failureOf("cannot start " + command, EAGAIN, -1);
    }
    return {process, ends[0]};
}

// Reads until the end of the output; kills the program when the time is over.
std::string readUntil(Clock::time_point end, const Child& child)
{
    std::string text;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd waiting{child.output, POLLIN, 0};
        const int ready = left > 0 ? poll(&waiting, 1, static_cast<int>(left)) : 0;
        if (ready == 0) {
            kill(child.process, SIGKILL);
            return text;
        }
        if (ready < 0) {
            continue;  // interrupted by a signal
        }
        char buffer[4096];
        const ssize_t length = read(child.output, buffer, sizeof buffer);
        if (length <= 0) {
            return text;
        }
        text.append(buffer, static_cast<std::size_t>(length));
    }
}

}  // namespace

CFiExecPipePosix::CFiExecPipePosix(int)
{
}

int CFiExecPipeBase::Exec(std::string command, std::vector<std::string>& output, std::string,
                          unsigned long timeoutSeconds, std::string, std::string, std::string)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(timeoutSeconds);
    const Child child = start(command);
    std::istringstream text(readUntil(end, child));
    close(child.output);
    for (std::string line; std::getline(text, line);) {
        output.push_back(line);
    }
    int waitStatus = 0;
    while (waitpid(child.process, &waitStatus, 0) < 0 && errno == EINTR) {
    }
    if (waitStatus != 0) {
        lastFailure = failureOf(command + " failed", 0, waitStatus);
    }
    return waitStatus;
}

}  // namespace ztfi_pdk_4_4
