// A tool that performs its arguments as instructions, one after the other, and exits with 0 unless one says otherwise.
// The tests of the command runner use it to check what a child gets, and as a child that misbehaves.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void write(int descriptor, const std::string& text)
{
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + written, text.size() - written);
        if (count < 0) {
            std::_Exit(99);
        }
        written += static_cast<std::size_t>(count);
    }
}

void print(const std::string& line)
{
    write(STDOUT_FILENO, line + "\n");
}

void printArguments(int count, char** arguments)
{
    for (int i = 0; i < count; ++i) {
        print(std::string("<") + arguments[i] + ">");
    }
}

void printEnvironment()
{
    for (char** entry = environ; *entry != nullptr; ++entry) {
        print(*entry);
    }
}

void printDescriptors()
{
    DIR* const directory = ::opendir("/proc/self/fd");
    while (const dirent* const entry = ::readdir(directory)) {
        char target[256] = {};
        const std::string path = std::string("/proc/self/fd/") + entry->d_name;
        if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != ::dirfd(directory) &&
            ::readlink(path.c_str(), target, sizeof target - 1) > 0) {
            print(std::string(entry->d_name) + " " + std::string(target).substr(0, std::strcspn(target, ":")));
        }
    }
    ::closedir(directory);
}

void printSignals()
{
    std::FILE* const status = std::fopen("/proc/self/status", "re");
    char line[256];
    while (std::fgets(line, sizeof line, status) != nullptr) {
        if (std::strncmp(line, "SigBlk", 6) == 0 || std::strncmp(line, "SigIgn", 6) == 0 ||
            std::strncmp(line, "SigCgt", 6) == 0) {
            write(STDOUT_FILENO, line);
        }
    }
    std::fclose(status);
}

void printGroup()
{
    print(std::to_string(::getpid()) + " " + std::to_string(::getpgrp()));
}

void printSession()
{
    print(std::to_string(::getpid()) + " " + std::to_string(::getsid(0)));
}

void appendTo(const char* path)
{
    const int file = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    write(file, "ran\n");
    ::close(file);
}

// Writes a line to the file when it is ready, and another one when it ends, 0.3 seconds after SIGTERM.
[[noreturn]] void endSlowlyWhenAsked(const char* path)
{
    sigset_t asked;
    sigemptyset(&asked);
    sigaddset(&asked, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &asked, nullptr);
    appendTo(path);
    int signal = 0;
    ::sigwait(&asked, &signal);
    ::usleep(300 * 1000);
    appendTo(path);
    std::_Exit(0);
}

void printOpening(const char* path)
{
    const int file = ::open(path, O_RDWR | O_CLOEXEC);
    print(file >= 0 ? "opened" : std::string("error ") + std::to_string(errno));
}

// Reads the bytes in the pipe to the runner before the runner can.
[[noreturn]] void stealOutput()
{
    const int pipe = ::open("/proc/self/fd/1", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    char bytes[64];
    for (;;) {
        write(STDOUT_FILENO, "stolen");
        while (::read(pipe, bytes, sizeof bytes) > 0) {
        }
    }
}

void sleepMilliseconds(int milliseconds)
{
    ::usleep(static_cast<useconds_t>(milliseconds) * 1000);
}

// Escapes for bytes that a word of a command line cannot contain.
std::string unescaped(const char* text)
{
    std::string result;
    for (; *text != '\0'; ++text) {
        const std::string escape(text, ::strnlen(text, 2));
        const char byte = escape == "@n"   ? '\n'
                          : escape == "@r" ? '\r'
                          : escape == "@0" ? '\0'
                          : escape == "@_" ? ' '
                                           : *text;
        text += byte == *text ? 0 : 1;
        result += byte;
    }
    return result;
}

// Forks a child that keeps the pipes open and performs the remaining words.
bool isTheGrandchild()
{
    return ::fork() == 0;
}

[[noreturn]] void writeForever(int descriptor)
{
    const std::string line(79, 'x');
    for (;;) {
        write(descriptor, line + "\n");
        ::usleep(100);
    }
}

// Returns the number of further words that it used.
int perform(const std::string& word, const char* argument)
{
    const int number = argument == nullptr ? 0 : std::atoi(argument);
    if (word == "print") {
        write(STDOUT_FILENO, unescaped(argument));
    } else if (word == "complain") {
        write(STDERR_FILENO, unescaped(argument));
    } else if (word == "print-bytes") {
        write(STDOUT_FILENO, std::string(static_cast<std::size_t>(number), 'o'));
    } else if (word == "complain-bytes") {
        write(STDERR_FILENO, std::string(static_cast<std::size_t>(number), 'e'));
    } else if (word == "sleep") {
        sleepMilliseconds(number);
    } else if (word == "exit") {
        std::_Exit(number);
    } else if (word == "raise") {
        ::raise(number);
    } else if (word == "ignore") {
        std::signal(number, SIG_IGN);
    } else if (word == "close") {
        ::close(number);
    } else if (word == "append-to") {
        appendTo(argument);
    } else if (word == "append-number-to") {
        const int file = ::open(argument, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        write(file, std::to_string(::getpid()) + "\n");
        ::close(file);
    } else if (word == "end-slowly") {
        endSlowlyWhenAsked(argument);
    } else if (word == "open") {
        printOpening(argument);
    } else {
        return 0;
    }
    return 1;
}

void performWithoutArgument(const std::string& word)
{
    if (word == "environment") {
        printEnvironment();
    } else if (word == "descriptors") {
        printDescriptors();
    } else if (word == "signals") {
        printSignals();
    } else if (word == "group") {
        printGroup();
    } else if (word == "session") {
        printSession();
    } else if (word == "leave-session") {
        ::setsid();
    } else if (word == "steal-output") {
        stealOutput();
    } else if (word == "join-group-of-parent") {
        ::setpgid(0, ::getpgid(::getppid()));
    } else if (word == "read-input") {
        char byte;
        print("read " + std::to_string(::read(STDIN_FILENO, &byte, 1)));
    } else if (word == "print-forever") {
        writeForever(STDOUT_FILENO);
    } else if (word == "complain-forever") {
        writeForever(STDERR_FILENO);
    } else if (word == "exit-on-term") {
        std::signal(SIGTERM, [](int) { std::_Exit(0); });
    } else {
        std::_Exit(98);
    }
}

}  // namespace

int main(int count, char** words)
{
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        if (word == "arguments") {
            printArguments(count - i - 1, words + i + 1);
            return 0;
        }
        if (word == "in-grandchild") {
            if (!isTheGrandchild()) {
                return 0;
            }
            continue;
        }
        if (word == "in-grandchild-while-waiting") {
            if (!isTheGrandchild()) {
                for (;;) {
                    ::pause();
                }
            }
            continue;
        }
        const int taken = perform(word, i + 1 < count ? words[i + 1] : nullptr);
        if (taken == 0) {
            performWithoutArgument(word);
        }
        i += taken;
    }
    return 0;
}
