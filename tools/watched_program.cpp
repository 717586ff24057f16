#include "tools/watched_program.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace kivclaim::tools {

namespace {

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

[[noreturn]] void fail()
{
    throw std::system_error(errno, std::generic_category());
}

// What the new process needs, made before it: nothing may be allocated in it.
struct Prepared {
    explicit Prepared(const ProgramStart& start)
        : words(start.words), environment(start.environment), descriptors(start.descriptors), parent(getpid())
    {
        wordPointers = pointersTo(words);
        environmentPointers = pointersTo(environment);
    }

    std::vector<std::string> words;
    std::vector<std::string> environment;
    std::vector<std::pair<int, int>> descriptors;
    pid_t parent;
    std::vector<char*> wordPointers;
    std::vector<char*> environmentPointers;
};

void setSignals()
{
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) {
        sigaction(signal, &byDefault, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

bool setDescriptors(const std::vector<std::pair<int, int>>& descriptors)
{
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    bool isDone = null >= 0 && dup2(null, STDIN_FILENO) >= 0;
    for (const auto& [own, itsNumber] : descriptors) {
        // dup2 to the same number would leave close-on-exec set.
        isDone = isDone && (own == itsNumber ? fcntl(own, F_SETFD, 0) : dup2(own, itsNumber)) >= 0;
    }
    return isDone;
}

// In the new process.
[[noreturn]] void become(const Prepared& prepared, int problemEnd)
{
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setSignals();
    // The other process may have ended before it could have been waited for.
    if (getppid() == prepared.parent && setDescriptors(prepared.descriptors)) {
        execve(prepared.wordPointers.front(), prepared.wordPointers.data(), prepared.environmentPointers.data());
    }
    const int problem = errno;
    const ssize_t written = write(problemEnd, &problem, sizeof problem);
    _exit(written > 0 ? 127 : 126);
}

// Above the numbers that the program gets, which would overwrite it.
int movedUp(int descriptor)
{
    constexpr int firstFree = 10;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, firstFree);
    close(descriptor);
    return moved;
}

pid_t started(const ProgramStart& start)
{
    const Prepared prepared(start);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail();
    }
    const int problemEnd = movedUp(ends[1]);
    const pid_t process = fork();
    if (process == 0) {
        become(prepared, problemEnd);
    }
    int problem = process < 0 ? errno : 0;
    close(problemEnd);
    const ssize_t told = process < 0 ? 0 : read(ends[0], &problem, sizeof problem);
    close(ends[0]);
    if (told > 0) {
        waitpid(process, nullptr, 0);
    }
    if (process < 0 || told > 0) {
        throw std::system_error(problem, std::generic_category());
    }
    return process;
}

}  // namespace

WatchedProgram::WatchedProgram(const ProgramStart& start) : latestEnd(std::chrono::steady_clock::now() + start.limit)
{
    Watch::beforeOutput();
    // A parent that ignores it would take the status away.
    std::signal(SIGCHLD, SIG_DFL);
    process = started(start);
    group.emplace(start.shownAs, process, latestEnd);
}

WatchedProgram::~WatchedProgram()
{
    if (!known) {
        endGroup();
        waitpid(process, nullptr, 0);
    }
}

std::optional<int> WatchedProgram::status()
{
    siginfo_t end{};
    // Not yet collected: its number, which is the group's, must not become another process's.
    if (!known && waitid(P_PID, static_cast<id_t>(process), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        end.si_pid == process) {
        endGroup();
        int status = 0;
        waitpid(process, &status, 0);
        known = status;
    }
    if (known) {
        Watch::beforeOutput();
    }
    return known;
}

void WatchedProgram::endGroup()
{
    kill(-process, SIGKILL);
    group.reset();
}

}  // namespace kivclaim::tools
