// The limits of time, output and processes, with and without the kernel announcing the end of a child.
#include "framework/cfiexecpipe.h"

#include "tests/faults/signal_storm.h"
#include "tests/runner_fixture.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <fstream>
#include <iterator>
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

namespace {

int refuseProcessDescriptor(int ofKernel)
{
    ::close(ofKernel);
    return -1;
}

// Always ready, so it announces an end that is none.
int openMisleadingDescriptor(int ofKernel)
{
    ::close(ofKernel);
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

// How the kernel tells of the end of a child.
struct Kernel {
    const char* name;
    int (*processDescriptor)(int ofKernel);
};

std::ostream& operator<<(std::ostream& stream, const Kernel& kernel)
{
    return stream << kernel.name;
}

std::string nameOfKernel(const testing::TestParamInfo<Kernel>& parameter)
{
    return parameter.param.name;
}

}  // namespace

class ExecPipe : public RunnerTest {};

class ExecPipeLimits : public RunnerTest, public testing::WithParamInterface<Kernel> {
protected:
    CommandResult run(const std::string& words, const RunLimits& limits)
    {
        CommandResult result;
        const auto time = timeOf([&] {
            result = runCommand(probe + " " + words, limits, lines,
                                {GetParam().processDescriptor, realSystemCalls().sendSignal});
        });
        EXPECT_LT(time, muchTooLong);
        return result;
    }

    Lines lines;
};

INSTANTIATE_TEST_SUITE_P(WithAKernel, ExecPipeLimits,
                         testing::Values(Kernel{"ThatAnnouncesTheEnd", realSystemCalls().processDescriptor},
                                         Kernel{"ThatAnnouncesNothing", &refuseProcessDescriptor},
                                         Kernel{"ThatAnnouncesWrongly", &openMisleadingDescriptor}),
                         nameOfKernel);

TEST_P(ExecPipeLimits, GivesOutputAndResultOfAnOrdinaryCommand)
{
    const CommandResult result = run("print one@n sleep 50 print two@n exit 4", quickLimits());
    EXPECT_TRUE(result.hasRun);
    EXPECT_EQ(result.result, 4);
    EXPECT_THAT(lines, ElementsAre("one", "two"));
}

namespace {

std::chrono::nanoseconds processorTimeOfThread()
{
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

TEST_P(ExecPipeLimits, UsesNoProcessorTimeWhileTheCommandSleeps)
{
    const auto before = processorTimeOfThread();
    EXPECT_EQ(run("sleep 400", quickLimits()).result, 0);
    EXPECT_EQ(run("close 1 close 2 sleep 400", quickLimits()).result, 0);
    EXPECT_LT(processorTimeOfThread() - before, 100ms);
}

TEST_P(ExecPipeLimits, SendsSigtermToTheChildAtTheTimeLimit)
{
    const CommandResult result = run("print early@n complain slow sleep 60000", limitedTo(300ms));
    EXPECT_TRUE(result.hasRun);
    EXPECT_EQ(result.result, 128 + SIGTERM);
    EXPECT_EQ(result.failure.waitStatus, SIGTERM);
    EXPECT_EQ(result.failure.errorNumber, ETIMEDOUT);
    EXPECT_THAT(result.failure.message, EndsWith("was ended by signal 15 (Terminated) after its time limit: slow"));
    EXPECT_THAT(lines, ElementsAre("early"));
}

TEST_P(ExecPipeLimits, KillsAChildThatIgnoresSigterm)
{
    const CommandResult result = run("ignore 15 print early@n sleep 60000", limitedTo(300ms));
    EXPECT_EQ(result.result, 128 + SIGKILL);
    EXPECT_EQ(result.failure.waitStatus, SIGKILL);
    EXPECT_THAT(lines, ElementsAre("early"));
}

TEST_P(ExecPipeLimits, NeverTreatsATimedOutCommandAsASuccess)
{
    const CommandResult result = run("exit-on-term print early@n sleep 60000", limitedTo(300ms));
    EXPECT_EQ(result.result, 128 + SIGTERM);
    EXPECT_EQ(result.failure.waitStatus, 0) << "the status as it is";
    EXPECT_EQ(result.failure.errorNumber, ETIMEDOUT);
}

TEST_P(ExecPipeLimits, EndsTheWholeGroupAtTheTimeLimit)
{
    RunLimits limits = limitedTo(300ms);
    limits.fromTermToKill = std::chrono::duration_cast<std::chrono::milliseconds>(muchTooLong);
    // The grandchild holds the pipes: before they are closed, the run would go on up to the kill.
    const CommandResult result = run("in-grandchild-while-waiting print grandchild@n sleep 60000", limits);
    EXPECT_EQ(result.failure.waitStatus, SIGTERM);
    EXPECT_THAT(lines, ElementsAre("grandchild"));
}

TEST_P(ExecPipeLimits, KillsMembersOfTheGroupThatSurviveItsLeader)
{
    // The grandchild shows its number, and neither ends when it is asked nor holds a pipe.
    run("in-grandchild-while-waiting ignore 15 group close 1 close 2 sleep 60000", limitedTo(300ms));
    ASSERT_EQ(lines.size(), 1U);
    const std::string grandchild = lines.front().substr(0, lines.front().find(' '));
    EXPECT_LT(timeOf([&] {
                  const auto end = std::chrono::steady_clock::now() + muchTooLong;
                  while (isRunning(grandchild) && std::chrono::steady_clock::now() < end) {
                      std::this_thread::yield();
                  }
              }),
              muchTooLong);
}

namespace {

std::string readyMark;

// Sends the signal only after a process of the group has reported that it is ready.
int signalWhenReady(pid_t process, int signal)
{
    while (std::ifstream(readyMark).peek() == EOF) {
        std::this_thread::yield();
    }
    return ::kill(process, signal);
}

}  // namespace

TEST_F(ExecPipe, GivesTheGroupItsTimeToEndAlsoWhenItsLeaderEndsAtOnce)
{
    const TemporaryFile mark;
    readyMark = mark.path;
    RunLimits limits = limitedTo(50ms);
    limits.fromTermToKill = std::chrono::duration_cast<std::chrono::milliseconds>(muchTooLong);
    Lines lines;
    // The grandchild holds no pipe: nothing but its group tells of it.
    const CommandResult result =
        runCommand(probe + " in-grandchild-while-waiting close 1 close 2 end-slowly " + mark.path, limits, lines,
                   {realSystemCalls().processDescriptor, &signalWhenReady});
    EXPECT_EQ(result.failure.waitStatus, SIGTERM);
    std::ifstream marks(mark.path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(marks), {}), "ran\nran\n") << "it came to its own end";
}

TEST_F(ExecPipe, WaitsNoLongerThanTheGroupTakesToEnd)
{
    RunLimits limits = limitedTo(50ms);
    limits.fromTermToKill = std::chrono::duration_cast<std::chrono::milliseconds>(muchTooLong);
    Lines lines;
    EXPECT_LT(timeOf([&] { runCommand(probe + " sleep 60000", limits, lines); }), muchTooLong / 2);
}

TEST_P(ExecPipeLimits, LetsAStoppedGroupGoOnSoThatItCanEnd)
{
    const CommandResult result = run("exit-on-term print early@n raise 19", limitedTo(300ms));
    EXPECT_EQ(result.result, 128 + SIGTERM);
    EXPECT_EQ(result.failure.waitStatus, 0) << "it ended itself, as it was asked to";
}

TEST_P(ExecPipeLimits, EndsAGroupWhoseLeaderIsGone)
{
    const CommandResult result = run("in-grandchild ignore 15 print-forever", limitedTo(300ms));
    EXPECT_EQ(result.result, 128 + SIGTERM) << "an output that was cut off is no success";
    EXPECT_EQ(result.failure.waitStatus, 0);
    EXPECT_FALSE(lines.empty());
}

TEST_P(ExecPipeLimits, EndsAChildThatLeftItsGroup)
{
    const CommandResult result = run("join-group-of-parent print out@n sleep 60000", limitedTo(300ms));
    EXPECT_EQ(result.failure.waitStatus, SIGTERM);
}

TEST_P(ExecPipeLimits, IsNotHeldByAGrandchildThatKeepsThePipesOpen)
{
    const CommandResult result = run("print before@n in-grandchild sleep 100 print late sleep 3000", quickLimits());
    EXPECT_EQ(result.result, 0);
    EXPECT_THAT(lines, ElementsAre("before", "late")) << "what was written is there";
}

TEST_P(ExecPipeLimits, DropsAnOutputOverTheCapAndEndsTheWriter)
{
    RunLimits limits = quickLimits();
    limits.outputBytes = 1000;
    lines = {"earlier"};
    const CommandResult result = run("complain why print-forever", limits);
    EXPECT_FALSE(result.hasRun);
    EXPECT_EQ(result.failure.errorNumber, EFBIG);
    EXPECT_EQ(result.failure.waitStatus, SIGTERM);
    EXPECT_THAT(result.failure.message, HasSubstr("more than 1000 bytes"));
    EXPECT_THAT(result.failure.message, EndsWith(": why"));
    EXPECT_THAT(lines, ElementsAre("earlier")) << "half an output must not pass for a whole one";
}

TEST_P(ExecPipeLimits, KillsAWriterOverTheCapThatIgnoresSigterm)
{
    RunLimits limits = quickLimits();
    limits.outputBytes = 1000;
    const CommandResult result = run("ignore 15 complain-forever", limits);
    EXPECT_EQ(result.failure.errorNumber, EFBIG);
    EXPECT_EQ(result.failure.waitStatus, SIGKILL);
}

TEST_P(ExecPipeLimits, EndsAGrandchildThatWritesOverTheCap)
{
    RunLimits limits = quickLimits();
    limits.outputBytes = 1000;
    const CommandResult result = run("in-grandchild ignore 15 print-forever", limits);
    EXPECT_EQ(result.failure.errorNumber, EFBIG);
}

TEST_P(ExecPipeLimits, CapsTheNumberOfLinesAsWell)
{
    RunLimits limits = quickLimits();
    limits.outputLines = 3;
    EXPECT_EQ(run("print a@nb@n@n", limits).result, 0);
    EXPECT_THAT(lines, ElementsAre("a", "b", ""));
    EXPECT_EQ(run("print a@nb@n@n@n", limits).failure.errorNumber, EFBIG);
    EXPECT_EQ(lines.size(), 3U) << "those of the first run";
}

TEST_P(ExecPipeLimits, CountsALastLineWithoutALineFeed)
{
    RunLimits limits = quickLimits();
    limits.outputLines = 3;
    EXPECT_EQ(run("print a@nb@nc", limits).result, 0);
    EXPECT_EQ(run("print a@nb@nc@nd", limits).failure.errorNumber, EFBIG);
    EXPECT_THAT(lines, ElementsAre("a", "b", "c"));
}

TEST_P(ExecPipeLimits, GivesAnOutputOfExactlyTheCap)
{
    RunLimits limits = quickLimits();
    limits.outputBytes = 1000;
    EXPECT_EQ(run("print-bytes 1000", limits).result, 0);
    EXPECT_THAT(lines, ElementsAre(std::string(1000, 'o')));
    EXPECT_EQ(run("print-bytes 1001", limits).failure.errorNumber, EFBIG);
}

TEST_P(ExecPipeLimits, WorksWhileSignalsInterruptIt)
{
    const tests::SignalStorm storm;
    EXPECT_EQ(run("print one@n sleep 100 print two@n exit 4", quickLimits()).result, 4);
    EXPECT_THAT(lines, ElementsAre("one", "two"));
    EXPECT_EQ(run("ignore 15 sleep 60000", limitedTo(100ms)).failure.waitStatus, SIGKILL);
    EXPECT_EQ(run("in-grandchild sleep 3000", quickLimits()).result, 0);
    EXPECT_GT(tests::SignalStorm::signals(), 100);
}

TEST_F(ExecPipe, FreesTheMemoryOfADroppedOutput)
{
    RunLimits limits = quickLimits();
    limits.outputLines = 100000;
    Lines lines{"earlier"};
    EXPECT_EQ(runCommand(KIVCLAIM_LINE_WRITER " 200000", limits, lines).failure.errorNumber, EFBIG);
    EXPECT_THAT(lines, ElementsAre("earlier"));
    EXPECT_LT(lines.capacity(), 10U);
}
