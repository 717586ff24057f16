// Commands that are replayed: nothing runs, and what comes of them is what would come of a run.
#include "host/command_replay.h"

#include "host/command_runner.h"
#include "host/command_snapshot.h"
#include "tests/runner_fixture.h"

#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

using kivclaim::host::CommandOutcome;
using kivclaim::host::CommandReplay;
using kivclaim::host::CommandRunner;
using kivclaim::host::CommandSnapshot;
using kivclaim::host::RunOutcome;
using testing::ElementsAre;
using testing::IsEmpty;
using ztfi_pdk_4_4::CFiExecPipePosix;

namespace {

CommandReplay::Recorded always(const CommandOutcome& outcome)
{
    return [outcome](const std::string&) { return outcome; };
}

// What both give must be the same to the letter.
void expectSame(const Outcome& one, const Outcome& other)
{
    EXPECT_EQ(one.lines, other.lines);
    EXPECT_EQ(one.result, other.result);
    EXPECT_EQ(one.wasThrown, other.wasThrown);
    EXPECT_EQ(one.failure.message, other.failure.message);
    EXPECT_EQ(one.failure.wideMessage, other.failure.wideMessage);
    EXPECT_EQ(one.failure.waitStatus, other.failure.waitStatus);
    EXPECT_EQ(one.failure.errorNumber, other.failure.errorNumber);
}

}  // namespace

class Replay : public RunnerTest {};

TEST_F(Replay, GivesTheRecordedLinesOfTheCommandThatIsAskedFor)
{
    const CommandReplay replay([](const std::string& command) {
        return CommandOutcome{command + "\n\nlast", "", 0, 0};
    });
    EXPECT_THAT(exec("/no/such/tool -x").lines, ElementsAre("/no/such/tool -x", "", "last"));
}

TEST_F(Replay, HoldsForTheWordsOfACommandRunnerToo)
{
    const CommandReplay replay([](const std::string& command) { return CommandOutcome{command + "\n", "", 3, 0}; });
    const RunOutcome outcome = CommandRunner().run({"/no/such/tool", "-x"});
    EXPECT_THAT(outcome.lines, ElementsAre("/no/such/tool -x"));
    EXPECT_EQ(outcome.result, 3);
}

TEST_F(Replay, AFailureIsWhatARunWouldGive)
{
    const std::string command = probe + " print out@n complain why exit 3";
    const Outcome run = exec(command);
    ASSERT_EQ(run.result, 3);
    const CommandReplay replay(always({"out\n", "why", 3, 0}));
    expectSame(exec(command), run);
}

TEST_F(Replay, ASignalIsWhatARunWouldGive)
{
    const CommandReplay replay(always({"out\n", "", 0, 9}));
    const Outcome outcome = exec("/sbin/tool");
    EXPECT_EQ(outcome.result, 137);
    EXPECT_EQ(outcome.failure.waitStatus, 9);
    EXPECT_EQ(outcome.failure.message, "The command [/sbin/tool] was ended by signal 9 (Killed)");
    EXPECT_THAT(outcome.lines, ElementsAre("out"));
}

TEST_F(Replay, ACommandWithoutAnOutcomeFailsLikeAMissingProgram)
{
    const Outcome run = exec("/no/such/tool");
    ASSERT_TRUE(run.wasThrown);
    const CommandReplay replay([](const std::string&) { return std::nullopt; });
    expectSame(exec("/no/such/tool"), run);
    EXPECT_TRUE(exec(probe + " print out@n").wasThrown) << "it must not run";
}

TEST_F(Replay, OfNestedReplaysTheInnermostAnswers)
{
    const CommandReplay outer(always({"outer\n", "", 0, 0}));
    {
        const CommandReplay inner(always({"inner\n", "", 0, 0}));
        EXPECT_THAT(exec(probe).lines, ElementsAre("inner"));
    }
    EXPECT_THAT(exec(probe).lines, ElementsAre("outer"));
}

TEST_F(Replay, CommandsRunAgainAfterItsEnd)
{
    {
        const CommandReplay replay(always({"recorded\n", "", 0, 0}));
    }
    EXPECT_THAT(exec(probe + " print out@n").lines, ElementsAre("out"));
}

TEST_F(Replay, ASnapshotRemembersWhatWasReplayed)
{
    int times = 0;
    const CommandReplay replay([&](const std::string&) {
        ++times;
        return CommandOutcome{"recorded\n", "", 0, 0};
    });
    const CommandSnapshot snapshot({"/sbin/tool"});
    EXPECT_THAT(exec("/sbin/tool").lines, ElementsAre("recorded"));
    EXPECT_THAT(exec("/sbin/tool").lines, ElementsAre("recorded"));
    EXPECT_EQ(times, 1);
}

TEST_F(Replay, DoesNotAffectOtherThreads)
{
    const CommandReplay replay(always({"recorded\n", "", 0, 0}));
    Outcome other;
    std::thread([&] { other = exec(probe + " print out@n"); }).join();
    EXPECT_THAT(other.lines, ElementsAre("out"));
}

TEST_F(Replay, WhatTheRecordThrowsIsThrownAndLeavesTheOutput)
{
    const CommandReplay replay(
        [](const std::string&) -> std::optional<CommandOutcome> { throw std::runtime_error("unreadable"); });
    Lines lines;
    CFiExecPipePosix runner(1);
    EXPECT_THROW(runner.Exec("/sbin/tool", lines, "", 0, "", "", ""), std::runtime_error);
    EXPECT_THAT(lines, IsEmpty());
}

TEST_F(Replay, MayOwnAnotherReplayAndBeEndedOnAnotherThread)
{
    auto owned = std::make_shared<CommandReplay>(always({"owned\n", "", 0, 0}));
    auto owner = std::make_unique<CommandReplay>([owned](const std::string&) {
        return CommandOutcome{"owner's\n", "", 0, 0};
    });
    owned.reset();
    EXPECT_THAT(exec(probe).lines, ElementsAre("owner's"));
    std::thread([&] { owner.reset(); }).join();
    EXPECT_THAT(exec(probe + " print out@n").lines, ElementsAre("out"));
    EXPECT_THAT(exec(probe + " print again@n").lines, ElementsAre("again"));
}
