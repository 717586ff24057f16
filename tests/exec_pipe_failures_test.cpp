// What the command runner says of commands that fail or cannot be run: result, record and trace log.
#include "framework/cfiexecpipe.h"

#include "host/runner/wide_text.h"
#include "host/trace_log.h"
#include "tests/runner_fixture.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>

using kivclaim::host::makeTraceLog;
using kivclaim::host::TraceLogPointer;
using kivclaim::host::traceToFunction;
using kivclaim::host_internal::CommandResult;
using kivclaim::host_internal::runCommand;
using kivclaim::host_internal::RunLimits;
using kivclaim::host_internal::wideText;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using ztfi_pdk_4_4::CFiExecPipePosix;
using namespace std::string_literals;

namespace {

struct Record {
    int level;
    std::string text;
};

class TracedRunner {
public:
    TracedRunner()
    {
        log = makeTraceLog({traceToFunction(6, [this](int level, const std::string& text) {
            records.push_back({level, text});
        })});
        runner.registerTraceLog(log);
    }

    std::vector<std::string> textsOf(int level) const
    {
        std::vector<std::string> texts;
        for (const Record& record : records) {
            if (record.level == level) {
                texts.push_back(record.text);
            }
        }
        return texts;
    }

    CFiExecPipePosix runner{1};

private:
    std::vector<Record> records;
    TraceLogPointer log;
};

}  // namespace

class ExecPipe : public RunnerTest {};

// --- Failures of the command ---

TEST_F(ExecPipe, GivesTheExitCodeAndRecordsTheFailure)
{
    const Outcome outcome = exec(probe + " print out@n complain bad@_device@n exit 3");
    EXPECT_FALSE(outcome.wasThrown);
    EXPECT_EQ(outcome.result, 3);
    EXPECT_THAT(outcome.lines, ElementsAre("out"));
    EXPECT_EQ(outcome.failure.waitStatus, 3 << 8);
    EXPECT_EQ(outcome.failure.errorNumber, 0);
    EXPECT_EQ(outcome.failure.message, "The command [" + probe +
                                           " print out@n complain bad@_device@n exit 3] ended with exit code 3: "
                                           "bad device\n");
    EXPECT_EQ(outcome.failure.wideMessage, wideText(outcome.failure.message));
}

TEST_F(ExecPipe, GivesDeathByASignalAsARecordedFailure)
{
    const Outcome outcome = exec(probe + " raise 9");
    EXPECT_FALSE(outcome.wasThrown);
    EXPECT_EQ(outcome.result, 128 + SIGKILL);
    EXPECT_EQ(outcome.failure.waitStatus, SIGKILL);
    EXPECT_THAT(outcome.failure.message, EndsWith("was ended by signal 9 (Killed)"));
}

TEST_F(ExecPipe, GivesTheRawStatusOfAnAbort)
{
    const Outcome outcome = exec(probe + " raise 6");
    EXPECT_EQ(outcome.result, 128 + SIGABRT);
    EXPECT_TRUE(WIFSIGNALED(static_cast<int>(outcome.failure.waitStatus)));
    EXPECT_EQ(WTERMSIG(static_cast<int>(outcome.failure.waitStatus)), SIGABRT);
}

TEST_F(ExecPipe, RecordsTheLastFourKibibytesOfStandardError)
{
    const Outcome outcome = exec(probe + " complain start complain-bytes 300000 complain end exit 1");
    EXPECT_THAT(outcome.failure.message, EndsWith("exit code 1: " + std::string(4093, 'e') + "end"));
}

TEST_F(ExecPipe, LeavesTheRecordAloneWhenACommandSucceeds)
{
    CFiExecPipePosix runner(1);
    execWith(runner, probe + " exit 3");
    EXPECT_EQ(execWith(runner, probe + " exit 0").failure.waitStatus, 3 << 8);
}

TEST_F(ExecPipe, ShowsTheCommandPrintably)
{
    EXPECT_THAT(exec(probe + " exit 3 \x1b[31m").failure.message, HasSubstr("exit 3 \\x1b[31m]"));
}

namespace {

std::size_t bytesOf(const ztfi_pdk_4_4::EFiExecPipe& record)
{
    return record.message.size() + record.wideMessage.size() * sizeof(wchar_t);
}

}  // namespace

TEST_F(ExecPipe, BoundsTheRecordWhateverTheCommandsLength)
{
    constexpr std::size_t most = 65536;
    for (const char byte : {'x', '\xff'}) {
        std::string longWord;
        longWord.resize(std::size_t{10} << 20, byte);
        const Outcome notRun = exec(probe + " " + longWord);
        EXPECT_TRUE(notRun.wasThrown);
        EXPECT_LE(bytesOf(notRun.failure), most);
        EXPECT_THAT(notRun.failure.message, testing::StartsWith("Cannot run [" + probe + " "));
        EXPECT_THAT(notRun.failure.message, EndsWith("...]: it cannot be started (Argument list too long)"));
        const Outcome failed = exec(probe + " complain " + std::string(100000, byte) + " exit 3");
        EXPECT_EQ(failed.result, 3);
        EXPECT_LE(bytesOf(failed.failure), most);
        EXPECT_THAT(failed.failure.message, HasSubstr("...] ended with exit code 3: " + std::string(4096, byte)));
    }
}

TEST(WideText, DecodesUtf8AndLosesNoByte)
{
    EXPECT_EQ(wideText("größe 日 😀\n"), L"größe 日 😀\n");
    EXPECT_EQ(wideText("a\xff\xe4z\xe6\x97"), L"a\\xff\\xe4z\\xe6\\x97");
    EXPECT_EQ(wideText("a\0b"s), L"a\0b"s);
    EXPECT_EQ(wideText(""), L"");
}

TEST_F(ExecPipe, GivesTheWideMessageInEveryLocaleAndWithAnyByte)
{
    const Outcome outcome = exec(probe + " complain \xc3\xa4\xff exit 1");
    EXPECT_THAT(outcome.failure.message, EndsWith(": \xc3\xa4\xff"));
    EXPECT_EQ(outcome.failure.wideMessage.substr(outcome.failure.wideMessage.size() - 7), L": \u00e4\\xff");
}

// --- The trace log ---

TEST_F(ExecPipe, TracesTheCommandBeforeAndItsStatusAfterwards)
{
    TracedRunner traced;
    execWith(traced.runner, probe + " exit 0");
    EXPECT_THAT(traced.textsOf(6), ElementsAre("Running [" + probe + " exit 0]",
                                               "Finished [" + probe + " exit 0]: result 0, wait status 0"));
    EXPECT_THAT(traced.textsOf(2), IsEmpty());
}

TEST_F(ExecPipe, WarnsOnceOfACommandThatFailed)
{
    TracedRunner traced;
    const Outcome outcome = execWith(traced.runner, probe + " complain why@0not exit 3");
    EXPECT_THAT(traced.textsOf(6), Contains(EndsWith(": result 3, wait status 768")));
    EXPECT_THAT(traced.textsOf(2), ElementsAre(EndsWith("ended with exit code 3: why not")));
    EXPECT_THAT(outcome.failure.message, EndsWith("why\0not"s));
}

TEST_F(ExecPipe, WarnsOnceOfACommandThatCouldNotBeRun)
{
    TracedRunner traced;
    EXPECT_TRUE(execWith(traced.runner, "/nonexistent/tool").wasThrown);
    EXPECT_THAT(traced.textsOf(2), ElementsAre(HasSubstr("No such file or directory")));
}

// --- Commands that cannot be run ---

namespace {

void expectCannotRun(const std::string& command, int errorNumber)
{
    CFiExecPipePosix runner(1);
    const Outcome outcome = execWith(runner, command);
    EXPECT_TRUE(outcome.wasThrown) << command.substr(0, 80);
    EXPECT_EQ(outcome.failure.errorNumber, errorNumber) << outcome.failure.message.substr(0, 200);
    EXPECT_THAT(outcome.failure.message, HasSubstr("Cannot run ["));
    EXPECT_EQ(outcome.failure.wideMessage, wideText(outcome.failure.message));
    EXPECT_EQ(outcome.failure.waitStatus, -1) << "no status is known, least of all that of a success";
    EXPECT_THAT(outcome.lines, IsEmpty());
    EXPECT_EQ(runner.getLastFailure().message, outcome.failure.message);
    EXPECT_EQ(runner.getLastFailure().wideMessage, outcome.failure.wideMessage);
    EXPECT_EQ(runner.getLastFailure().errorNumber, errorNumber);
    EXPECT_EQ(runner.getLastFailure().waitStatus, -1);
}

}  // namespace

TEST_F(ExecPipe, ThrowsForAProgramThatCannotBeStarted)
{
    expectCannotRun("/nonexistent/tool", ENOENT);
    expectCannotRun("/tmp", EACCES);
    expectCannotRun("/dev/null/tool", ENOTDIR);
    expectCannotRun(probe + " " + std::string(300000, 'x'), E2BIG);
}

TEST_F(ExecPipe, NeverPassesTextToAShell)
{
    const TemporaryFile script;
    const TemporaryFile proof;
    std::ofstream(script.path) << "echo ran >" << proof.path << "\n";
    expectCannotRun(script.path, EACCES);
    ::chmod(script.path.c_str(), 0700);
    expectCannotRun(script.path, ENOEXEC);
    EXPECT_EQ(std::ifstream(proof.path).peek(), EOF);
}

TEST_F(ExecPipe, SucceedsOrReportsTheErrorHoweverFewDescriptorsAreLeft)
{
    const int surelyEnough = *openDescriptors().rbegin() + 8;
    int refused = 0;
    int succeeded = 0;
    for (int limit = 0; limit < surelyEnough; ++limit) {
        Lines lines;
        const CommandResult result = [&] {
            const DescriptorLimit lowered(static_cast<rlim_t>(limit));
            return runCommand(probe + " print out@n", RunLimits(), lines);
        }();
        if (result.hasRun) {
            ++succeeded;
            EXPECT_EQ(result.result, 0) << limit;
            EXPECT_THAT(lines, ElementsAre("out")) << limit;
        } else {
            ++refused;
            EXPECT_EQ(result.failure.errorNumber, EMFILE) << limit;
        }
        EXPECT_TRUE(hasNoChildren());
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(succeeded, 0);
}

namespace {

// Runs as a user that may not have another process; 0 when the runner reports that correctly.
[[noreturn]] void runWithoutProcessesLeft()
{
    const rlimit none{0, 0};
    if (::setrlimit(RLIMIT_NPROC, &none) != 0 || (::geteuid() == 0 && ::setuid(65534) != 0)) {
        std::_Exit(2);
    }
    const Outcome outcome = exec(probe + " exit 0");
    std::_Exit(outcome.wasThrown && outcome.failure.errorNumber == EAGAIN ? 0 : 1);
}

}  // namespace

TEST_F(ExecPipe, ThrowsWhenThereAreNoProcessesLeft)
{
    EXPECT_EXIT(runWithoutProcessesLeft(), testing::ExitedWithCode(0), "");
}
