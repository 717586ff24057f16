// A child that not even SIGKILL ends, or that the runner may not signal.
#include "framework/cfiexecpipe.h"

#include "tests/runner_fixture.h"

#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <thread>

#include <gmock/gmock.h>

using kivclaim::host_internal::CommandResult;
using kivclaim::host_internal::realSystemCalls;
using kivclaim::host_internal::runCommand;
using kivclaim::host_internal::RunLimits;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using namespace std::chrono_literals;

class ExecPipe : public RunnerTest {};

namespace {

std::atomic<pid_t> unreachable{0};

// As if the child were stuck in the kernel.
int reachNobody(pid_t process, int)
{
    unreachable = std::abs(process);
    return 0;
}

RunLimits hopelessLimits()
{
    RunLimits limits = limitedTo(100ms);
    limits.fromTermToKill = 50ms;
    limits.fromKillToLeave = 50ms;
    return limits;
}

}  // namespace

TEST_F(ExecPipe, AbandonsAChildThatSurvivesSigkillAndCollectsItLater)
{
    Lines lines{"earlier"};
    const CommandResult result = runCommand(probe + " print out@n complain stuck sleep 60000", hopelessLimits(), lines,
                                            {realSystemCalls().processDescriptor, &reachNobody});
    EXPECT_FALSE(result.hasRun);
    EXPECT_EQ(result.failure.errorNumber, ETIMEDOUT);
    EXPECT_EQ(result.failure.waitStatus, -1);
    EXPECT_THAT(result.failure.message, HasSubstr("abandoned"));
    EXPECT_THAT(lines, ElementsAre("earlier"));

    ASSERT_GT(unreachable, 0) << "no tool was started";
    ASSERT_EQ(::kill(unreachable, SIGKILL), 0);
    siginfo_t information;
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(unreachable), &information, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(runCommand(probe + " exit 0", quickLimits(), lines).result, 0);
    EXPECT_TRUE(hasNoChildren()) << "the next run collected it";
}

namespace {

// As when the process may open nothing more.
int reachNobodyAndUseUpTheDescriptors(pid_t process, int signal)
{
    rlimit none{};
    ::getrlimit(RLIMIT_NOFILE, &none);
    none.rlim_cur = 0;
    ::setrlimit(RLIMIT_NOFILE, &none);
    return reachNobody(process, signal);
}

}  // namespace

TEST_F(ExecPipe, RemembersAnAbandonedChildAlsoWhenNoFileCanBeOpened)
{
    Lines lines;
    {
        rlimit before{};
        ::getrlimit(RLIMIT_NOFILE, &before);
        const DescriptorLimit restoredAtTheEnd(before.rlim_cur);
        runCommand(probe + " sleep 60000", hopelessLimits(), lines,
                   {realSystemCalls().processDescriptor, &reachNobodyAndUseUpTheDescriptors});
    }
    ASSERT_GT(unreachable, 0) << "no tool was started";
    ASSERT_EQ(::kill(unreachable, SIGKILL), 0);
    siginfo_t information;
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(unreachable), &information, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(runCommand(probe + " exit 0", quickLimits(), lines).result, 0);
    EXPECT_TRUE(hasNoChildren()) << "the next run collected it";
}

namespace {

// As when the tool has changed its user.
int refuseToSignal(pid_t process, int)
{
    unreachable = std::abs(process);
    errno = EPERM;
    return -1;
}

}  // namespace

TEST_F(ExecPipe, SaysAtOnceThatAToolOfAnotherUserCannotBeEnded)
{
    Lines lines;
    RunLimits limits = limitedTo(50ms);
    limits.fromTermToKill = std::chrono::duration_cast<std::chrono::milliseconds>(muchTooLong);
    CommandResult result;
    EXPECT_LT(timeOf([&] {
                  result = runCommand(probe + " complain why sleep 60000", limits, lines,
                                      {realSystemCalls().processDescriptor, &refuseToSignal});
              }),
              muchTooLong / 2);
    EXPECT_FALSE(result.hasRun);
    EXPECT_EQ(result.failure.errorNumber, EPERM);
    EXPECT_EQ(result.failure.waitStatus, -1);
    EXPECT_THAT(result.failure.message, HasSubstr("it runs as another user"));
    EXPECT_THAT(result.failure.message, EndsWith(": why"));
    ASSERT_GT(unreachable, 0) << "no tool was started";
    ::kill(unreachable, SIGKILL);
    EXPECT_EQ(::waitpid(unreachable, nullptr, 0), unreachable.load());
}

TEST_F(ExecPipe, ForgetsAnAbandonedChildThatTheProcessCollectsItself)
{
    Lines lines;
    runCommand(probe + " sleep 60000", hopelessLimits(), lines, {realSystemCalls().processDescriptor, &reachNobody});
    ASSERT_GT(unreachable, 0) << "no tool was started";
    ::kill(unreachable, SIGKILL);
    EXPECT_EQ(::waitpid(unreachable, nullptr, 0), unreachable.load()) << "the process collects it itself";
    EXPECT_EQ(runCommand(probe + " exit 0", quickLimits(), lines).result, 0);
}

namespace {

std::string writtenMark;

// Kills only when the child has written its last output, and comes back when it is dead: the runner then finds more in
// the pipe than it reads at once.
int killAfterTheLastOutput(pid_t process, int signal)
{
    if (signal != SIGKILL) {
        return ::kill(process, signal);
    }
    while (std::ifstream(writtenMark).peek() == EOF) {
        std::this_thread::yield();
    }
    const int result = ::kill(process, signal);
    siginfo_t information;
    ::waitid(P_PID, static_cast<id_t>(std::abs(process)), &information, WEXITED | WNOWAIT);
    return result;
}

}  // namespace

TEST_F(ExecPipe, ReadsWhatAKilledChildHadWritten)
{
    const TemporaryFile mark;
    writtenMark = mark.path;
    RunLimits limits = limitedTo(100ms);
    limits.fromTermToKill = 50ms;
    Lines lines;
    const CommandResult result = runCommand(
        probe + " ignore 15 print-bytes 200000 sleep 300 print-bytes 700000 append-to " + mark.path + " sleep 60000",
        limits, lines, {realSystemCalls().processDescriptor, &killAfterTheLastOutput});
    EXPECT_EQ(result.failure.waitStatus, SIGKILL);
    EXPECT_THAT(lines, ElementsAre(std::string(900000, 'o')));
}
