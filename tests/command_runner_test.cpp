#include "host/command_runner.h"

#include "host/command_snapshot.h"
#include "tests/runner_fixture.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <optional>
#include <thread>

#include <gmock/gmock.h>

using kivclaim::host::CommandLimits;
using kivclaim::host::CommandRunner;
using kivclaim::host::CommandRunnerScope;
using kivclaim::host::CommandSnapshot;
using kivclaim::host::RunningCommand;
using kivclaim::host::RunOutcome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using ztfi_pdk_4_4::EFiExecPipe;
using namespace std::chrono_literals;
using namespace std::string_literals;
using Clock = std::chrono::steady_clock;

namespace {

CommandLimits limitOf(std::chrono::milliseconds wholeRun)
{
    CommandLimits limits;
    limits.wholeRun = wholeRun;
    limits.fromTermToKill = 200ms;
    return limits;
}

EFiExecPipe failureOf(CommandRunner& runner, const std::vector<std::string>& words)
{
    try {
        runner.run(words);
    } catch (const EFiExecPipe& failure) {
        return failure;
    }
    ADD_FAILURE() << "it could be run";
    return {};
}

void awaitLines(const std::string& file, int count)
{
    const auto end = Clock::now() + muchTooLong;
    for (std::string text; std::count(text.begin(), text.end(), '\n') < count && Clock::now() < end;) {
        std::ifstream stream(file);
        text = {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
}

// Cancels the runner when the tool has left its mark in the file.
std::thread cancellerOf(CommandRunner& runner, const std::string& file)
{
    return std::thread([&] {
        awaitLines(file, 1);
        runner.cancel();
    });
}

}  // namespace

class HostCommandRunner : public RunnerTest {};

TEST_F(HostCommandRunner, GivesTheWordsOfAListToTheProgramAsTheyAre)
{
    CommandRunner runner;
    const RunOutcome outcome = runner.run({probe, "arguments", "a b", "", " ", "c\nd"});
    EXPECT_EQ(outcome.result, 0);
    EXPECT_THAT(outcome.lines, ElementsAre("<a b>", "<>", "< >", "<c", "d>"));
}

TEST_F(HostCommandRunner, RecordsTheFailureOfACommand)
{
    CommandRunner runner;
    const RunOutcome outcome = runner.run({probe, "print", "out", "complain", "why", "exit", "3"});
    EXPECT_EQ(outcome.result, 3);
    EXPECT_THAT(outcome.lines, ElementsAre("out"));
    EXPECT_EQ(outcome.failure.waitStatus, 3 << 8);
    EXPECT_EQ(outcome.failure.message,
              "The command [" + probe + " print out complain why exit 3] ended with exit code 3: why");
}

TEST_F(HostCommandRunner, RefusesAListThatNamesNoProgramByItsPath)
{
    CommandRunner runner;
    EXPECT_EQ(failureOf(runner, {}).errorNumber, EINVAL);
    EXPECT_EQ(failureOf(runner, {""}).errorNumber, EINVAL);
    EXPECT_EQ(failureOf(runner, {"true"}).errorNumber, EINVAL);
    EXPECT_EQ(failureOf(runner, {probe, "a\0b"s}).errorNumber, EINVAL);
    EXPECT_EQ(failureOf(runner, {"/nonexistent/a tool"}).errorNumber, ENOENT);
}

TEST_F(HostCommandRunner, EndsACommandAtItsOwnLimit)
{
    CommandRunner runner(limitOf(200ms));
    const RunOutcome outcome = runner.run({probe, "print", "early", "sleep", "60000"});
    EXPECT_EQ(outcome.result, 128 + SIGTERM);
    EXPECT_EQ(outcome.failure.errorNumber, ETIMEDOUT);
    EXPECT_THAT(outcome.lines, ElementsAre("early"));
}

TEST_F(HostCommandRunner, CapsTheOutput)
{
    CommandLimits limits;
    limits.outputBytes = 1000;
    CommandRunner runner(limits);
    EXPECT_EQ(failureOf(runner, {probe, "print-bytes", "1001"}).errorNumber, EFBIG);
    limits = CommandLimits();
    limits.outputLines = 2;
    CommandRunner byLines(limits);
    EXPECT_EQ(failureOf(byLines, {probe, "print", "a@nb@nc"}).errorNumber, EFBIG);
}

TEST_F(HostCommandRunner, IsCancelledFromAnotherThread)
{
    const TemporaryFile mark;
    CommandRunner runner;
    std::thread canceller = cancellerOf(runner, mark.path);
    const EFiExecPipe failure =
        failureOf(runner, {probe, "print", "lost", "complain", "why", "append-to", mark.path, "sleep", "60000"});
    canceller.join();
    EXPECT_EQ(failure.errorNumber, ECANCELED);
    EXPECT_EQ(failure.waitStatus, SIGTERM);
    EXPECT_THAT(failure.message, HasSubstr("it was cancelled and ended (Operation canceled): why"));
    EXPECT_TRUE(runner.isCancelled());
}

TEST_F(HostCommandRunner, EndsTheWholeGroupOfACancelledCommand)
{
    const TemporaryFile mark;
    CommandLimits limits;
    limits.fromTermToKill = std::chrono::duration_cast<std::chrono::milliseconds>(muchTooLong);
    CommandRunner runner(limits);
    std::thread canceller = cancellerOf(runner, mark.path);
    failureOf(runner, {probe, "in-grandchild-while-waiting", "close", "1", "close", "2", "end-slowly", mark.path});
    canceller.join();
    std::ifstream marks(mark.path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(marks), {}), "ran\nran\n") << "it came to its own end";
}

TEST_F(HostCommandRunner, KillsACancelledCommandThatIgnoresSigterm)
{
    const TemporaryFile mark;
    CommandRunner runner(limitOf(0ms));
    std::thread canceller = cancellerOf(runner, mark.path);
    const EFiExecPipe failure = failureOf(runner, {probe, "ignore", "15", "append-to", mark.path, "sleep", "60000"});
    canceller.join();
    EXPECT_EQ(failure.errorNumber, ECANCELED);
    EXPECT_EQ(failure.waitStatus, SIGKILL);
}

TEST_F(HostCommandRunner, StartsNothingOnceItIsCancelled)
{
    const TemporaryFile mark;
    CommandRunner runner;
    runner.cancel();
    runner.cancel();
    for (int i = 0; i < 2; ++i) {
        const EFiExecPipe failure = failureOf(runner, {probe, "append-to", mark.path});
        EXPECT_EQ(failure.errorNumber, ECANCELED);
        EXPECT_EQ(failure.waitStatus, -1);
    }
    EXPECT_EQ(std::ifstream(mark.path).peek(), EOF);
}

TEST_F(HostCommandRunner, StartsNothingAfterItsDeadline)
{
    const TemporaryFile mark;
    CommandLimits limits;
    limits.deadline = Clock::now();
    CommandRunner runner(limits);
    EXPECT_EQ(failureOf(runner, {probe, "append-to", mark.path}).errorNumber, ETIMEDOUT);
    EXPECT_EQ(std::ifstream(mark.path).peek(), EOF);
}

TEST_F(HostCommandRunner, LetsNoCommandRunAfterItsDeadline)
{
    CommandLimits limits;
    limits.deadline = Clock::now() + 300ms;
    CommandRunner runner(limits);
    const CommandRunnerScope scope(runner);
    EXPECT_EQ(exec(probe + " exit 0", 600).result, 0);
    EXPECT_EQ(exec(probe + " sleep 60000", 600).failure.errorNumber, ETIMEDOUT);
    EXPECT_TRUE(exec(probe + " exit 0", 600).wasThrown);
}

namespace {

CommandRunner* runnerOfHandler = nullptr;

}  // namespace

TEST_F(HostCommandRunner, MayBeCancelledInASignalHandler)
{
    const TemporaryFile mark;
    CommandRunner runner;
    runnerOfHandler = &runner;
    const SignalHandling handling(SIGUSR1, [](int) { runnerOfHandler->cancel(); });
    const pthread_t thisThread = ::pthread_self();
    std::thread signaller([&] {
        awaitLines(mark.path, 1);
        ::pthread_kill(thisThread, SIGUSR1);
    });
    EXPECT_EQ(failureOf(runner, {probe, "append-to", mark.path, "sleep", "60000"}).errorNumber, ECANCELED);
    signaller.join();
}

TEST_F(HostCommandRunner, ReportsTheRunningCommandsAndTheirLatestEnd)
{
    const TemporaryFile mark;
    CommandRunner runner(limitOf(60000ms));
    EXPECT_THAT(runner.running(), IsEmpty());
    std::vector<RunningCommand> seen;
    std::thread watcher([&] {
        awaitLines(mark.path, 1);
        seen = runner.running();
        runner.cancel();
    });
    const auto start = Clock::now();
    failureOf(runner, {probe, "append-to", mark.path, "sleep", "60000"});
    watcher.join();
    ASSERT_THAT(seen, SizeIs(1));
    EXPECT_EQ(seen[0].command, probe + " append-to " + mark.path + " sleep 60000");
    EXPECT_GE(seen[0].start, start);
    EXPECT_EQ(seen[0].latestEnd, seen[0].start + 60000ms + 200ms + 10000ms);
    EXPECT_THAT(runner.running(), IsEmpty());
}

namespace {

void expectNoLatestEnd(CommandRunner&& runner)
{
    const TemporaryFile mark;
    std::vector<RunningCommand> seen;
    std::thread watcher([&] {
        awaitLines(mark.path, 1);
        seen = runner.running();
        runner.cancel();
    });
    failureOf(runner, {probe, "append-to", mark.path, "sleep", "60000"});
    watcher.join();
    ASSERT_THAT(seen, SizeIs(1));
    EXPECT_EQ(seen[0].latestEnd, Clock::time_point::max());
}

}  // namespace

TEST_F(HostCommandRunner, ReportsThatThereIsNoLatestEnd)
{
    expectNoLatestEnd(CommandRunner());
}

TEST_F(HostCommandRunner, TakesADeadlineJustBeforeTheEndOfTimeForNone)
{
    CommandLimits limits;
    limits.deadline = Clock::time_point::max() - 1s;
    expectNoLatestEnd(CommandRunner(limits));
}

TEST_F(HostCommandRunner, RunsCommandsOfSeveralThreadsAtOnce)
{
    CommandRunner runner;
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&, number] {
            for (int i = 0; i < 10; ++i) {
                const std::string word = std::to_string(number);
                const RunOutcome outcome = runner.run({probe, "print", word, "exit", word});
                right += outcome.result == number && outcome.lines == Lines{word} ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 40);
}

// --- Exec within a scope ---

TEST_F(HostCommandRunner, AppliesToEveryExecOfTheThread)
{
    CommandRunner runner(limitOf(200ms));
    const CommandRunnerScope scope(runner);
    EXPECT_EQ(exec(probe + " sleep 60000", 600).failure.errorNumber, ETIMEDOUT);
    EXPECT_EQ(exec(probe + " exit 0", 600).result, 0);
}

TEST_F(HostCommandRunner, MayAllowMoreThanTheCallerOfExecAsksFor)
{
    CommandRunner runner(limitOf(60000ms));
    const CommandRunnerScope scope(runner);
    EXPECT_EQ(exec(probe + " sleep 1200 exit 4", 1).result, 4);
}

TEST_F(HostCommandRunner, LeavesTheCallersLimitWhenItHasNone)
{
    CommandRunner runner;
    const CommandRunnerScope scope(runner);
    EXPECT_EQ(exec(probe + " sleep 60000", 1).failure.errorNumber, ETIMEDOUT);
}

TEST_F(HostCommandRunner, AppliesToNoOtherThreadAndNotAfterItsScope)
{
    CommandRunner runner;
    runner.cancel();
    {
        const CommandRunnerScope scope(runner);
        EXPECT_TRUE(exec(probe + " exit 0").wasThrown);
        std::thread([] { EXPECT_EQ(exec(probe + " exit 0").result, 0); }).join();
    }
    EXPECT_EQ(exec(probe + " exit 0").result, 0);
}

TEST_F(HostCommandRunner, IsHiddenByAnInnerScope)
{
    CommandRunner outer;
    outer.cancel();
    CommandRunner inner;
    const CommandRunnerScope outerScope(outer);
    {
        const CommandRunnerScope innerScope(inner);
        EXPECT_EQ(exec(probe + " exit 0").result, 0);
    }
    EXPECT_TRUE(exec(probe + " exit 0").wasThrown);
}

TEST_F(HostCommandRunner, MayBeDestroyedBeforeItsScope)
{
    auto runner = std::make_unique<CommandRunner>(limitOf(200ms));
    const CommandRunnerScope scope(*runner);
    runner.reset();
    EXPECT_EQ(exec(probe + " sleep 60000", 600).failure.errorNumber, ETIMEDOUT);
}

TEST_F(HostCommandRunner, EndsAnExecThatIsCancelledAndLeavesTheOutputAlone)
{
    const TemporaryFile mark;
    CommandRunner runner;
    const CommandRunnerScope scope(runner);
    std::thread canceller = cancellerOf(runner, mark.path);
    const Outcome outcome = exec(probe + " print lost@n append-to " + mark.path + " sleep 60000", 600);
    canceller.join();
    EXPECT_TRUE(outcome.wasThrown);
    EXPECT_EQ(outcome.failure.errorNumber, ECANCELED);
    EXPECT_THAT(outcome.lines, IsEmpty());
}

TEST_F(HostCommandRunner, KeepsTheResultOfACommandThatHadEndedWhenItWasCancelled)
{
    const TemporaryFile mark;
    CommandRunner runner;
    const CommandRunnerScope scope(runner);
    std::thread canceller = cancellerOf(runner, mark.path);
    // The tool has ended; a grandchild holds the pipes, and says so only after that.
    const Outcome outcome =
        exec(probe + " print out@n in-grandchild sleep 300 append-to " + mark.path + " sleep 3000", 600);
    canceller.join();
    EXPECT_FALSE(outcome.wasThrown);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_THAT(outcome.lines, ElementsAre("out"));
}

TEST_F(HostCommandRunner, IsNotRememberedByASnapshotWhenItIsCancelled)
{
    const std::string command = probe + " print out@n";
    const CommandSnapshot snapshot({command});
    {
        CommandRunner runner;
        runner.cancel();
        const CommandRunnerScope scope(runner);
        EXPECT_TRUE(exec(command).wasThrown);
    }
    EXPECT_THAT(exec(command).lines, ElementsAre("out"));
}
