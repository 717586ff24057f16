// The command runner in hosts that are not as simple as a test: that collect every child, change their environment
// while a command is started, or die while one runs.
#include "tests/runner_fixture.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <termios.h>

#include <array>
#include <atomic>
#include <functional>
#include <thread>

#include <gmock/gmock.h>

using kivclaim::host_internal::CommandResult;
using kivclaim::host_internal::runCommand;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::chrono_literals;

namespace {

void collectEveryChild(int)
{
    const int savedError = errno;
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = savedError;
}

// What a host may do about the end of its children.
struct Collecting {
    const char* name;
    void (*handler)(int);
    int flags;
    bool blocksTheSignal;
};

std::ostream& operator<<(std::ostream& stream, const Collecting& host)
{
    return stream << host.name;
}

std::string nameOfHost(const testing::TestParamInfo<Collecting>& parameter)
{
    return parameter.param.name;
}

}  // namespace

class ExecPipeInAHost : public RunnerTest, public testing::WithParamInterface<Collecting> {
protected:
    ExecPipeInAHost()
    {
        struct sigaction action = {};
        action.sa_handler = GetParam().handler;
        action.sa_flags = GetParam().flags;
        ::sigaction(SIGCHLD, &action, &actionBefore);
        sigset_t ofChildren;
        sigemptyset(&ofChildren);
        sigaddset(&ofChildren, SIGCHLD);
        ::pthread_sigmask(GetParam().blocksTheSignal ? SIG_BLOCK : SIG_UNBLOCK, &ofChildren, &maskBefore);
    }
    ~ExecPipeInAHost() override
    {
        struct sigaction action = {};
        ::sigaction(SIGCHLD, &actionBefore, &action);
        EXPECT_EQ(reinterpret_cast<void*>(action.sa_handler), reinterpret_cast<void*>(GetParam().handler));
        EXPECT_EQ(action.sa_flags & SA_NOCLDWAIT, GetParam().flags & SA_NOCLDWAIT) << "the host's setting is its own";
        ::pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    }

private:
    struct sigaction actionBefore = {};
    sigset_t maskBefore = {};
};

INSTANTIATE_TEST_SUITE_P(That, ExecPipeInAHost,
                         testing::Values(Collecting{"LeavesTheEndOfChildrenAlone", SIG_DFL, 0, false},
                                         Collecting{"IgnoresTheEndOfChildren", SIG_IGN, 0, false},
                                         Collecting{"WantsNoZombies", SIG_DFL, SA_NOCLDWAIT, false},
                                         Collecting{"CollectsEveryChildWhenSignalled", &collectEveryChild, 0, false},
                                         Collecting{"WaitsForTheSignalItself", SIG_DFL, 0, true}),
                         nameOfHost);

TEST_P(ExecPipeInAHost, GivesOutputAndResult)
{
    for (int i = 0; i < 10; ++i) {
        const Outcome outcome = exec(probe + " print out@n complain why exit 3");
        EXPECT_FALSE(outcome.wasThrown) << outcome.failure.message;
        EXPECT_EQ(outcome.result, 3);
        EXPECT_EQ(outcome.failure.waitStatus, 3 << 8);
        EXPECT_THAT(outcome.lines, ElementsAre("out"));
    }
    EXPECT_EQ(exec(probe + " exit 0").result, 0);
    EXPECT_EQ(exec(probe + " raise 6").failure.waitStatus & 0x7F, SIGABRT);
}

TEST_P(ExecPipeInAHost, SaysWhyAProgramCannotBeStarted)
{
    const Outcome outcome = exec("/nonexistent/tool");
    EXPECT_TRUE(outcome.wasThrown);
    EXPECT_EQ(outcome.failure.errorNumber, ENOENT);
    EXPECT_EQ(outcome.failure.waitStatus, -1);
}

TEST_P(ExecPipeInAHost, GivesTheToolWhatItGetsEverywhere)
{
    const int inheritable = ::open("/dev/zero", O_RDONLY);
    EXPECT_THAT(exec(probe + " descriptors").lines, ElementsAre("0 /dev/null", "1 pipe", "2 pipe"));
    ::close(inheritable);
    EXPECT_THAT(exec(probe + " signals").lines,
                ElementsAre("SigBlk:\t0000000000000000", "SigIgn:\t0000000000000000", "SigCgt:\t0000000000000000"));
    const Lines group = exec(probe + " group").lines;
    ASSERT_EQ(group.size(), 1U);
    const std::size_t blank = group.front().find(' ');
    EXPECT_EQ(group.front().substr(0, blank), group.front().substr(blank + 1));
}

namespace {

std::string readyMark;

// Asks only when the tool has said that it is ready.
int signalWhenReady(pid_t process, int signal)
{
    while (std::ifstream(readyMark).peek() == EOF) {
        std::this_thread::yield();
    }
    return ::kill(process, signal);
}

}  // namespace

TEST_P(ExecPipeInAHost, EndsTheGroupAtTheTimeLimit)
{
    Lines lines;
    const CommandResult asked = runCommand(probe + " print early@n sleep 60000", limitedTo(2000ms), lines);
    EXPECT_EQ(asked.result, 128 + SIGTERM);
    EXPECT_EQ(asked.failure.waitStatus, SIGTERM);
    EXPECT_THAT(lines, ElementsAre("early"));
    const TemporaryFile mark;
    readyMark = mark.path;
    const CommandResult killed =
        runCommand(probe + " ignore 15 append-to " + mark.path + " sleep 60000", limitedTo(200ms), lines,
                   {kivclaim::host_internal::realSystemCalls().processDescriptor, &signalWhenReady});
    EXPECT_EQ(killed.failure.waitStatus, SIGKILL);
}

TEST_P(ExecPipeInAHost, WaitsForAToolThatClosedItsOutputs)
{
    EXPECT_EQ(exec(probe + " close 1 close 2 sleep 100 exit 5").result, 5);
}

TEST_P(ExecPipeInAHost, IsNotHeldByAGrandchildThatKeepsThePipesOpen)
{
    Lines lines;
    EXPECT_EQ(runCommand(probe + " print before@n in-grandchild sleep 3000", quickLimits(), lines).result, 0);
    EXPECT_THAT(lines, ElementsAre("before"));
}

namespace {

std::atomic<pid_t> unreachable{0};

// As if the child were stuck in the kernel.
int reachNobody(pid_t process, int)
{
    unreachable = std::abs(process);
    return 0;
}

// While it lives, orphans become children of this process, as of the first one in a container.
class AdoptedOrphans {
public:
    AdoptedOrphans() { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }
    AdoptedOrphans(const AdoptedOrphans&) = delete;
    AdoptedOrphans& operator=(const AdoptedOrphans&) = delete;
    ~AdoptedOrphans() { ::prctl(PR_SET_CHILD_SUBREAPER, 0); }
};

}  // namespace

TEST_P(ExecPipeInAHost, AbandonsAToolThatSurvivesSigkillAndCollectsItLater)
{
    const AdoptedOrphans orphans;
    kivclaim::host_internal::RunLimits limits = limitedTo(100ms);
    limits.fromTermToKill = 50ms;
    limits.fromKillToLeave = 50ms;
    Lines lines;
    const CommandResult result =
        runCommand(probe + " sleep 60000", limits, lines,
                   {kivclaim::host_internal::realSystemCalls().processDescriptor, &reachNobody});
    EXPECT_FALSE(result.hasRun);
    EXPECT_THAT(result.failure.message, HasSubstr("abandoned"));
    ASSERT_GT(unreachable, 0) << "no tool was started";
    ASSERT_EQ(::kill(unreachable, SIGKILL), 0);
    siginfo_t information;
    ASSERT_EQ(::waitid(P_ALL, 0, &information, WEXITED | WNOWAIT | __WALL), 0);
    EXPECT_EQ(runCommand(probe + " exit 0", quickLimits(), lines).result, 0);
    EXPECT_TRUE(hasNoChildren()) << "the next run collected it";
}

class ExecPipeHost : public RunnerTest {};

// A thread that collects every child: nothing in the process's signal settings tells of it.
TEST_F(ExecPipeHost, GetsTheRightResultWhileAThreadCollectsEveryChild)
{
    std::atomic<bool> over{false};
    std::thread collector([&] {
        while (!over) {
            if (::waitpid(-1, nullptr, 0) < 0) {
                std::this_thread::yield();
            }
        }
    });
    for (int i = 0; i < 50; ++i) {
        const Outcome outcome = exec(probe + " print out@n exit 3");
        EXPECT_FALSE(outcome.wasThrown) << outcome.failure.message;
        EXPECT_EQ(outcome.result, 3);
        EXPECT_THAT(outcome.lines, ElementsAre("out"));
    }
    over = true;
    collector.join();
}

// --- The environment ---

namespace {

class EnvironmentOf {
public:
    explicit EnvironmentOf(char** entries) : before(environ) { environ = entries; }
    EnvironmentOf(const EnvironmentOf&) = delete;
    EnvironmentOf& operator=(const EnvironmentOf&) = delete;
    ~EnvironmentOf() { environ = before; }

private:
    char** before;
};

// Memory that cannot be read from its second page on, as memory that was given back.
class EndingMemory {
public:
    EndingMemory()
        : bytes(static_cast<char*>(
              ::mmap(nullptr, 2 * pageBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)))
    {
        ::mprotect(end(), pageBytes, PROT_NONE);
    }
    EndingMemory(const EndingMemory&) = delete;
    EndingMemory& operator=(const EndingMemory&) = delete;
    ~EndingMemory() { ::munmap(bytes, 2 * pageBytes); }

    char* end() const { return bytes + pageBytes; }

    // The text without a NUL byte, up to the last readable byte.
    char* lastBytes(const std::string& text) const
    {
        return static_cast<char*>(std::copy(text.begin(), text.end(), end() - text.size()) - text.size());
    }

private:
    static constexpr std::size_t pageBytes = 4096;
    char* bytes;
};

}  // namespace

TEST_F(ExecPipeHost, StartsTheToolWithWhatCanBeReadOfAnEnvironmentThatWasFreed)
{
    const EndingMemory memory;
    char home[] = "HOME=/nowhere";
    char locale[] = "LC_ALL=de_DE.UTF-8";
    char* entries[] = {memory.end(), home, memory.lastBytes("LC_A"), locale, reinterpret_cast<char*>(8), nullptr};
    const EnvironmentOf environment(entries);
    EXPECT_THAT(exec(probe + " environment").lines,
                ElementsAre("HOME=/nowhere", "LC_ALL=C", "LVM_SUPPRESS_FD_WARNINGS=1"));
}

TEST_F(ExecPipeHost, StartsTheToolWhenTheListOfTheEnvironmentWasFreed)
{
    const EndingMemory memory;
    const EnvironmentOf environment(reinterpret_cast<char**>(memory.end()));
    EXPECT_THAT(exec(probe + " environment").lines, ElementsAre("LC_ALL=C", "LVM_SUPPRESS_FD_WARNINGS=1"));
}

TEST_F(ExecPipeHost, PassesOnAnEnvironmentOfManyPages)
{
    std::vector<std::string> texts;
    std::vector<char*> entries;
    texts.reserve(3002);
    entries.reserve(3003);
    for (int i = 0; i < 3000; ++i) {
        texts.push_back("LC_" + std::to_string(i) + "=" + std::string(static_cast<std::size_t>(i % 50), 'x'));
    }
    texts.emplace_back("LC_ALL=de");
    texts.emplace_back("L");
    for (std::string& text : texts) {
        entries.push_back(text.data());
    }
    entries.push_back(nullptr);
    const EnvironmentOf environment(entries.data());
    texts[texts.size() - 2] = "LC_ALL=C";
    const char* const last = entries[3000];
    EXPECT_STREQ(last, "LC_ALL=C");
    std::vector<std::string> expected(texts.begin(), texts.begin() + 3000);
    expected.insert(expected.end(), {"L", "LC_ALL=C", "LVM_SUPPRESS_FD_WARNINGS=1"});
    EXPECT_EQ(exec(probe + " environment").lines, expected);
}

TEST_F(ExecPipeHost, WorksWhileAThreadChangesTheEnvironment)
{
    std::atomic<bool> over{false};
    std::thread changer([&] {
        for (int i = 0; !over; i = (i + 1) % 4000) {
            const std::string name = "KIVCLAIM_RUNNER_TEST_" + std::to_string(i);
            ::setenv(name.c_str(), "value", 1);
            if (i == 3999) {
                for (int j = 0; j < 4000; ++j) {
                    ::unsetenv(("KIVCLAIM_RUNNER_TEST_" + std::to_string(j)).c_str());
                }
            }
        }
    });
    int right = 0;
    for (int i = 0; i < 500; ++i) {
        right += exec("/bin/true").result == 0 ? 1 : 0;
    }
    over = true;
    changer.join();
    for (int j = 0; j < 4000; ++j) {
        ::unsetenv(("KIVCLAIM_RUNNER_TEST_" + std::to_string(j)).c_str());
    }
    EXPECT_EQ(right, 500);
}

// --- Sessions and terminals ---

namespace {

// As the leader of a session with a terminal; the exit status is 0 when the tool finds none.
[[noreturn]] void runWithATerminal()
{
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (::setsid() < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0) {
        std::_Exit(3);
    }
    const int side = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY);
    if (side < 0 || ::ioctl(side, TIOCSCTTY, 0) != 0) {
        std::_Exit(4);
    }
    Lines lines;
    const CommandResult result = runCommand(probe + " open /dev/tty session", limitedTo(3000ms), lines);
    if (result.result != 0 || lines.size() != 2 || lines[0] != "error " + std::to_string(ENXIO)) {
        std::_Exit(1);
    }
    const std::size_t blank = lines[1].find(' ');
    std::_Exit(lines[1].substr(0, blank) == lines[1].substr(blank + 1) ? 0 : 2);
}

}  // namespace

TEST_F(ExecPipeHost, GivesTheToolNoTerminalToWaitFor)
{
    EXPECT_EXIT(runWithATerminal(), testing::ExitedWithCode(0), "");
}

// --- The end of the host ---

namespace {

// The number of the tool that a host in a process of its own has started.
std::string toolOf(const std::string& file)
{
    std::string number;
    const auto end = std::chrono::steady_clock::now() + muchTooLong;
    while (number.empty() && std::chrono::steady_clock::now() < end) {
        std::ifstream(file) >> number;
    }
    return number;
}

void expectToolsEndWithTheHost(void (*handlingOfChildren)(int))
{
    const TemporaryFile file;
    const pid_t host = ::fork();
    if (host == 0) {
        std::signal(SIGCHLD, handlingOfChildren);
        exec(probe + " append-number-to " + file.path + " ignore 15 ignore 1 sleep 60000");
        std::_Exit(0);
    }
    const std::string tool = toolOf(file.path);
    ASSERT_FALSE(tool.empty());
    EXPECT_TRUE(isRunning(tool));
    ::kill(host, SIGKILL);
    ::waitpid(host, nullptr, 0);
    const auto end = std::chrono::steady_clock::now() + muchTooLong;
    while (isRunning(tool) && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(isRunning(tool));
}

}  // namespace

TEST_F(ExecPipeHost, EndsItsToolWhenItIsKilled)
{
    expectToolsEndWithTheHost(SIG_DFL);
}

TEST_F(ExecPipeHost, EndsItsToolWhenItIsKilledAlsoIfItIgnoresTheEndOfChildren)
{
    expectToolsEndWithTheHost(SIG_IGN);
}

TEST_F(ExecPipeHost, LosesNoToolWhenAnotherOfItsThreadsEnds)
{
    Outcome outcome;
    std::atomic<bool> isStarted{false};
    std::thread starter;
    std::thread runner([&] {
        starter = std::thread([] {});
        isStarted = true;  // only now may the other thread join it
        outcome = exec(probe + " print out@n sleep 300 exit 3");
    });
    while (!isStarted) {
        std::this_thread::yield();
    }
    starter.join();
    runner.join();
    EXPECT_EQ(outcome.result, 3);
}

// --- Cancellation of threads ---

namespace {

std::atomic<bool> isRunningACommand{false};
std::atomic<bool> didTheRunEnd{false};

// Cancellation ends this frame in the middle: the address sanitizer would keep parts of it poisoned, and the C library
// uses the stack again when the thread ends.
__attribute__((no_sanitize("address"))) void* runWithAsynchronousCancellation(void* command)
{
    ::pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
    isRunningACommand = true;
    exec(*static_cast<const std::string*>(command));
    didTheRunEnd = true;
    for (;;) {
        ::pause();
    }
}

}  // namespace

TEST_F(ExecPipeHost, IsCancelledAsynchronouslyAfterTheRunOnly)
{
    const TemporaryFile mark;
    for (const std::string& command : {probe + " sleep 300 append-to " + mark.path,
                                       probe + " sleep 300 append-to " + mark.path + " complain why exit 3"}) {
        isRunningACommand = false;
        pthread_t thread;
        ASSERT_EQ(
            ::pthread_create(&thread, nullptr, &runWithAsynchronousCancellation, const_cast<std::string*>(&command)),
            0);
        while (!isRunningACommand || hasNoChildren()) {
            std::this_thread::yield();
        }
        ::pthread_cancel(thread);
        void* end = nullptr;
        ::pthread_join(thread, &end);
        EXPECT_EQ(end, PTHREAD_CANCELED);
        EXPECT_FALSE(didTheRunEnd) << "it acts before Exec returns";
    }
    std::ifstream file(mark.path);
    EXPECT_EQ(std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n'), 2)
        << "both tools came to their ends";
}
