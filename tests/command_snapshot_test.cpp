#include "host/command_snapshot.h"

#include "host/trace_log.h"
#include "tests/runner_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

#include <gmock/gmock.h>

using kivclaim::host::CommandSnapshot;
using kivclaim::host::makeTraceLog;
using kivclaim::host::traceToFunction;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using ztfi_pdk_4_4::CFiExecPipePosix;

namespace {

// A command that leaves a mark in a file each time it runs.
class CountedCommand {
public:
    explicit CountedCommand(const std::string& furtherWords = "print out@n")
    {
        char name[] = "/tmp/command_snapshot_test.XXXXXX";
        ::close(::mkstemp(name));
        marks = name;
        line = probe + " append-to " + marks + " " + furtherWords;
    }
    CountedCommand(const CountedCommand&) = delete;
    CountedCommand& operator=(const CountedCommand&) = delete;
    ~CountedCommand() { ::unlink(marks.c_str()); }

    long runs() const
    {
        std::ifstream file(marks);
        return std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n');
    }

    std::string line;

private:
    std::string marks;
};

}  // namespace

class Snapshot : public RunnerTest {};

TEST_F(Snapshot, RunsItsCommandOnceAndGivesItsLinesEachTime)
{
    const CountedCommand command("print one@ntwo@n");
    const CommandSnapshot snapshot({command.line});
    EXPECT_THAT(exec(command.line).lines, ElementsAre("one", "two"));
    EXPECT_THAT(exec(command.line).lines, ElementsAre("one", "two"));
    EXPECT_THAT(exec(command.line, 5).lines, ElementsAre("one", "two"));
    EXPECT_EQ(command.runs(), 1);
}

TEST_F(Snapshot, RunsNothingByItself)
{
    const CountedCommand command;
    const CommandSnapshot snapshot({command.line});
    EXPECT_EQ(command.runs(), 0);
}

TEST_F(Snapshot, AppendsToTheLinesThatAreThere)
{
    const CountedCommand command;
    const CommandSnapshot snapshot({command.line});
    Lines lines{"earlier"};
    for (int i = 0; i < 2; ++i) {
        CFiExecPipePosix(1).Exec(command.line, lines, "", 0, "", "", "");
    }
    EXPECT_THAT(lines, ElementsAre("earlier", "out", "out"));
}

TEST_F(Snapshot, GivesAFailureAgainWithItsRecord)
{
    const CountedCommand command("print out@n complain why exit 3");
    const CommandSnapshot snapshot({command.line});
    const Outcome first = exec(command.line);
    const Outcome second = exec(command.line);
    EXPECT_EQ(command.runs(), 1);
    EXPECT_EQ(second.result, 3);
    EXPECT_THAT(second.lines, ElementsAre("out"));
    EXPECT_EQ(second.failure.waitStatus, 3 << 8);
    EXPECT_THAT(second.failure.message, EndsWith(": why"));
    EXPECT_EQ(second.failure.message, first.failure.message);
    EXPECT_EQ(second.failure.wideMessage, first.failure.wideMessage);
}

TEST_F(Snapshot, ThrowsAgainWhatWasThrown)
{
    char name[] = "/tmp/command_snapshot_test.XXXXXX";
    ::close(::mkstemp(name));
    const std::string command = name;
    const CommandSnapshot snapshot({command});
    EXPECT_EQ(exec(command).failure.errorNumber, EACCES);
    ::unlink(name);
    CFiExecPipePosix runner(1);
    const Outcome again = execWith(runner, command);
    EXPECT_TRUE(again.wasThrown);
    EXPECT_EQ(again.failure.errorNumber, EACCES) << "a new attempt would find no file";
    EXPECT_EQ(runner.getLastFailure().message, again.failure.message);
}

TEST_F(Snapshot, RunsEveryOtherCommandEachTime)
{
    const CountedCommand named;
    const CountedCommand other;
    const CommandSnapshot snapshot({named.line});
    exec(other.line);
    exec(other.line);
    exec(named.line + " ");
    exec(named.line);
    EXPECT_EQ(other.runs(), 2);
    EXPECT_EQ(named.runs(), 2) << "only exactly the same line is the same command";
}

TEST_F(Snapshot, RunsTheCommandAgainInTheNextSnapshotAndAfterTheLast)
{
    const CountedCommand command;
    for (int i = 0; i < 2; ++i) {
        const CommandSnapshot snapshot({command.line});
        exec(command.line);
        exec(command.line);
    }
    exec(command.line);
    EXPECT_EQ(command.runs(), 3);
}

TEST_F(Snapshot, HidesTheOuterOneThatNamesTheSameCommand)
{
    const CountedCommand command;
    const CommandSnapshot outer({command.line});
    exec(command.line);
    {
        const CommandSnapshot inner({command.line});
        exec(command.line);
        exec(command.line);
        EXPECT_EQ(command.runs(), 2);
    }
    exec(command.line);
    EXPECT_EQ(command.runs(), 2) << "the outer one remembers still";
}

TEST_F(Snapshot, LeavesTheOuterOneItsOtherCommands)
{
    const CountedCommand ofOuter;
    const CountedCommand ofInner;
    const CommandSnapshot outer({ofOuter.line});
    const CommandSnapshot inner({ofInner.line});
    exec(ofOuter.line);
    exec(ofOuter.line);
    EXPECT_EQ(ofOuter.runs(), 1);
}

TEST_F(Snapshot, MayEndBeforeAnInnerOne)
{
    const CountedCommand ofOuter;
    const CountedCommand ofInner;
    auto outer = std::make_unique<CommandSnapshot>(Lines{ofOuter.line});
    const CommandSnapshot inner({ofInner.line});
    outer.reset();
    for (int i = 0; i < 2; ++i) {
        exec(ofOuter.line);
        exec(ofInner.line);
    }
    EXPECT_EQ(ofOuter.runs(), 2);
    EXPECT_EQ(ofInner.runs(), 1);
}

TEST_F(Snapshot, OtherThreadsRunTheCommandThemselves)
{
    const CountedCommand command;
    const CommandSnapshot snapshot({command.line});
    exec(command.line);
    std::thread([&] {
        exec(command.line);
        exec(command.line);
    }).join();
    EXPECT_EQ(command.runs(), 3);
}

TEST_F(Snapshot, MayBeClosedByTheReceiverOfTheRecordsOfARun)
{
    const CountedCommand command;
    std::unique_ptr<CommandSnapshot> snapshot;
    const auto log =
        makeTraceLog({traceToFunction(6, [&](int /*level*/, const std::string& /*text*/) { snapshot.reset(); })});
    CFiExecPipePosix runner(1);
    runner.registerTraceLog(log);
    for (int i = 0; i < 2; ++i) {
        snapshot = std::make_unique<CommandSnapshot>(Lines{command.line});
        EXPECT_THAT(execWith(runner, command.line).lines, ElementsAre("out"));
        EXPECT_EQ(snapshot, nullptr);
    }
    snapshot = std::make_unique<CommandSnapshot>(Lines{command.line});
    exec(command.line);
    EXPECT_THAT(execWith(runner, command.line).lines, ElementsAre("out")) << "what was remembered";
    EXPECT_EQ(command.runs(), 3);
}

TEST_F(Snapshot, MayBeClosedOnAnotherThread)
{
    const CountedCommand command;
    auto snapshot = std::make_unique<CommandSnapshot>(Lines{command.line});
    exec(command.line);
    std::thread([&] { snapshot.reset(); }).join();
    exec(command.line);
    exec(command.line);
    EXPECT_EQ(command.runs(), 3);
}

TEST_F(Snapshot, MayOutliveTheThreadThatMadeIt)
{
    const CountedCommand command;
    std::unique_ptr<CommandSnapshot> snapshot;
    std::thread([&] {
        snapshot = std::make_unique<CommandSnapshot>(Lines{command.line});
        exec(command.line);
    }).join();
    snapshot.reset();
    exec(command.line);
    EXPECT_EQ(command.runs(), 2);
}

TEST_F(Snapshot, MayBeClosedOnAnotherThreadWhileItsCommandRuns)
{
    const CountedCommand command("sleep 200 print out@n");
    auto snapshot = std::make_unique<CommandSnapshot>(Lines{command.line});
    std::thread closer([&] {
        while (command.runs() == 0) {
            std::this_thread::yield();
        }
        snapshot.reset();
    });
    EXPECT_THAT(exec(command.line).lines, ElementsAre("out"));
    closer.join();
}

TEST_F(Snapshot, SaysInTheTraceThatNothingIsRun)
{
    std::vector<std::string> details;
    std::vector<std::string> warnings;
    const auto log = makeTraceLog({traceToFunction(
        6, [&](int level, const std::string& text) { (level == 6 ? details : warnings).push_back(text); })});
    const CountedCommand command("exit 3");
    const CommandSnapshot snapshot({command.line});
    CFiExecPipePosix runner(1);
    runner.registerTraceLog(log);
    execWith(runner, command.line);
    EXPECT_EQ(warnings.size(), 1U);
    details.clear();
    warnings.clear();
    execWith(runner, command.line);
    EXPECT_THAT(details, ElementsAre("Giving again what was remembered of [" + command.line + "]"));
    EXPECT_THAT(warnings, IsEmpty());
}
