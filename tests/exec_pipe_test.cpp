// The command runner, seen from the framework's interface and, for what would take long, from its inside.
#include "framework/cfiexecpipe.h"

#include "host/runner/wide_text.h"
#include "host/trace_log.h"
#include "tests/faults/signal_storm.h"
#include "tests/runner_fixture.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <iterator>
#include <thread>

#include <gmock/gmock.h>

using kivclaim::host::makeTraceLog;
using kivclaim::host::TraceLogPointer;
using kivclaim::host::traceToFunction;
using kivclaim::host_internal::CommandResult;
using kivclaim::host_internal::realSystemCalls;
using kivclaim::host_internal::runCommand;
using kivclaim::host_internal::RunLimits;
using kivclaim::host_internal::wideText;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using ztfi_pdk_4_4::CFiExecPipePosix;
using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

class SignalBlock {
public:
    explicit SignalBlock(int signal)
    {
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, signal);
        ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
    }
    SignalBlock(const SignalBlock&) = delete;
    SignalBlock& operator=(const SignalBlock&) = delete;
    ~SignalBlock() { ::pthread_sigmask(SIG_SETMASK, &before, nullptr); }

private:
    sigset_t before{};
};

class EnvironmentOf {
public:
    explicit EnvironmentOf(char** entries) : before(environ) { environ = entries; }
    EnvironmentOf(const EnvironmentOf&) = delete;
    EnvironmentOf& operator=(const EnvironmentOf&) = delete;
    ~EnvironmentOf() { environ = before; }

private:
    char** before;
};

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

// --- Words ---

TEST_F(ExecPipe, SplitsTheCommandAtRunsOfBlanks)
{
    EXPECT_THAT(exec("  " + probe + "   arguments one \t two\t\tthree  ").lines,
                ElementsAre("<one>", "<two>", "<three>"));
}

TEST_F(ExecPipe, PassesWhatAShellWouldTakeForItselfAsPlainBytes)
{
    EXPECT_THAT(exec(probe + " arguments ; $(id) `id` 'a \"b c\" * ? ~ && || | > < # \\ $HOME {a,b} !! \xff").lines,
                ElementsAre("<;>", "<$(id)>", "<`id`>", "<'a>", "<\"b>", "<c\">", "<*>", "<?>", "<~>", "<&&>", "<||>",
                            "<|>", "<>>", "<<>", "<#>", "<\\>", "<$HOME>", "<{a,b}>", "<!!>", "<\xff>"));
}

TEST_F(ExecPipe, TakesALineFeedForAPlainByteOfAWord)
{
    EXPECT_THAT(exec(probe + " arguments a\nb").lines, ElementsAre("<a", "b>"));
}

TEST_F(ExecPipe, RefusesAProgramThatIsNotNamedByItsAbsolutePath)
{
    for (const char* const command : {"true", "./true", "bin/true", "~/true"}) {
        const Outcome outcome = exec(command);
        EXPECT_TRUE(outcome.wasThrown) << command;
        EXPECT_EQ(outcome.failure.errorNumber, EINVAL) << command;
        EXPECT_THAT(outcome.failure.message, HasSubstr("absolute path"));
    }
}

TEST_F(ExecPipe, RefusesACommandWithoutAWord)
{
    for (const char* const command : {"", "  \t "}) {
        const Outcome outcome = exec(command);
        EXPECT_TRUE(outcome.wasThrown);
        EXPECT_EQ(outcome.failure.errorNumber, EINVAL);
    }
}

TEST_F(ExecPipe, RefusesACommandWithANulByte)
{
    const Outcome outcome = exec(probe + " arguments a\0b"s);
    EXPECT_TRUE(outcome.wasThrown);
    EXPECT_EQ(outcome.failure.errorNumber, EINVAL);
    EXPECT_THAT(outcome.failure.message, HasSubstr("a\\x00b"));
}

// --- What the child gets ---

TEST_F(ExecPipe, GivesTheChildTheStandardDescriptorsOnly)
{
    const int inheritable = ::open("/dev/zero", O_RDONLY);
    const int farInheritable = ::fcntl(inheritable, F_DUPFD, 500);
    const Outcome outcome = exec(probe + " descriptors");
    ::close(inheritable);
    ::close(farInheritable);
    EXPECT_THAT(outcome.lines, ElementsAre("0 /dev/null", "1 pipe", "2 pipe"));
}

TEST_F(ExecPipe, GivesTheChildAnInputThatEndsAtOnce)
{
    EXPECT_THAT(exec(probe + " read-input").lines, ElementsAre("read 0"));
}

TEST_F(ExecPipe, GivesTheChildItsDescriptorsWhateverStandardDescriptorsTheProcessLacks)
{
    for (int lacking = 1; lacking < 8; ++lacking) {
        std::array<int, 3> saved{};
        for (int descriptor = 0; descriptor < 3; ++descriptor) {
            saved[descriptor] = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 100);
        }
        for (int descriptor = 0; descriptor < 3; ++descriptor) {
            if ((lacking >> descriptor & 1) != 0) {
                ::close(descriptor);
            }
        }
        const Outcome outcome = exec(probe + " descriptors complain problem exit 3");
        for (int descriptor = 0; descriptor < 3; ++descriptor) {
            ::dup2(saved[descriptor], descriptor);
            ::close(saved[descriptor]);
        }
        EXPECT_THAT(outcome.lines, ElementsAre("0 /dev/null", "1 pipe", "2 pipe")) << lacking;
        EXPECT_EQ(outcome.result, 3) << lacking;
        EXPECT_THAT(outcome.failure.message, EndsWith(": problem")) << lacking;
    }
}

TEST_F(ExecPipe, GivesTheChildDefaultSignalHandlingWhateverTheProcessDoes)
{
    const SignalHandling pipeIgnored(SIGPIPE, SIG_IGN);
    const SignalHandling userIgnored(SIGUSR1, SIG_IGN);
    const SignalHandling realTimeIgnored(SIGRTMIN + 3, SIG_IGN);
    const SignalHandling handled(SIGUSR2, [](int) {});
    const SignalBlock blocked(SIGTERM);
    EXPECT_THAT(exec(probe + " signals").lines,
                ElementsAre("SigBlk:\t0000000000000000", "SigIgn:\t0000000000000000", "SigCgt:\t0000000000000000"));
}

TEST_F(ExecPipe, PutsTheChildIntoItsOwnProcessGroup)
{
    const Outcome outcome = exec(probe + " group");
    ASSERT_EQ(outcome.lines.size(), 1U);
    const std::string& line = outcome.lines.front();
    const std::size_t blank = line.find(' ');
    EXPECT_EQ(line.substr(0, blank), line.substr(blank + 1));
}

TEST_F(ExecPipe, GivesTheChildAnEnvironmentInWhichNothingIsTranslated)
{
    char home[] = "HOME=/nowhere";
    char locale[] = "LC_ALL=de_DE.UTF-8";
    char sameAgain[] = "LC_ALL=fr_FR.UTF-8";
    char language[] = "LANGUAGE=de";
    char messages[] = "LC_MESSAGES=de_DE.UTF-8";
    char otherLanguage[] = "LANGUAGES=kept";
    char* entries[] = {home, locale, language, messages, sameAgain, otherLanguage, nullptr};
    const EnvironmentOf environment(entries);
    EXPECT_THAT(exec(probe + " environment").lines,
                testing::UnorderedElementsAre("HOME=/nowhere", "LC_MESSAGES=de_DE.UTF-8", "LANGUAGES=kept", "LC_ALL=C",
                                              "LVM_SUPPRESS_FD_WARNINGS=1"));
    EXPECT_EQ(environ, static_cast<char**>(entries)) << "the process keeps its own";
    EXPECT_STREQ(entries[1], "LC_ALL=de_DE.UTF-8");
}

TEST_F(ExecPipe, StartsTheChildEvenWithoutAnyEnvironment)
{
    const EnvironmentOf environment(nullptr);
    EXPECT_THAT(exec(probe + " environment").lines,
                testing::UnorderedElementsAre("LC_ALL=C", "LVM_SUPPRESS_FD_WARNINGS=1"));
}

// --- Output ---

TEST_F(ExecPipe, CutsTheOutputAtLineFeedsOnly)
{
    EXPECT_THAT(exec(probe + " print one@n@ntwo@r@nth@0ree@n@nlast").lines,
                ElementsAre("one", "", "two\r", "th\0ree"s, "", "last"));
}

TEST_F(ExecPipe, GivesNoLineForNoOutputAndOneForALineFeed)
{
    EXPECT_THAT(exec(probe + " exit 0").lines, IsEmpty());
    EXPECT_THAT(exec(probe + " print @n").lines, ElementsAre(""));
}

TEST_F(ExecPipe, AppendsToTheLinesThatAreThere)
{
    CFiExecPipePosix runner(1);
    Lines lines{"earlier"};
    EXPECT_EQ(runner.Exec(probe + " print new", lines, "", 0, "", "", ""), 0);
    EXPECT_THAT(lines, ElementsAre("earlier", "new"));
}

TEST_F(ExecPipe, KeepsALineThatIsLongerThanEveryBufferWhole)
{
    const Outcome outcome = exec(probe + " print-bytes 3000000 print @nend@n");
    ASSERT_EQ(outcome.lines.size(), 2U);
    EXPECT_EQ(outcome.lines[0], std::string(3000000, 'o'));
    EXPECT_EQ(outcome.lines[1], "end");
}

TEST_F(ExecPipe, ReadsManyLinesCompletely)
{
    constexpr std::size_t count = 200000;
    const Outcome outcome = exec(KIVCLAIM_LINE_WRITER " " + std::to_string(count));
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.lines, Lines(count, std::string(79, 'x')));
}

TEST_F(ExecPipe, BlocksTheChildOnNeitherPipe)
{
    const Outcome outcome =
        exec(probe + " complain-bytes 400000 print-bytes 400000 complain-bytes 400000 print-bytes 400000", 20);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_THAT(outcome.lines, ElementsAre(std::string(800000, 'o')));
}

TEST_F(ExecPipe, WaitsForAChildThatClosedItsOutputs)
{
    const Outcome outcome = exec(probe + " print out@n close 1 close 2 sleep 100 exit 5");
    EXPECT_EQ(outcome.result, 5);
    EXPECT_THAT(outcome.lines, ElementsAre("out"));
}

TEST_F(ExecPipe, KeepsStandardErrorOutOfTheLines)
{
    const Outcome outcome = exec(probe + " print out@n complain problem@n");
    EXPECT_THAT(outcome.lines, ElementsAre("out"));
    EXPECT_EQ(outcome.result, 0);
}

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

TEST(WideText, TakesTextForUtf8AndLosesNoByte)
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

TEST_F(ExecPipe, NeverHandsATextToAShell)
{
    const TemporaryFile script;
    const TemporaryFile proof;
    std::ofstream(script.path) << "echo ran >" << proof.path << "\n";
    expectCannotRun(script.path, EACCES);
    ::chmod(script.path.c_str(), 0700);
    expectCannotRun(script.path, ENOEXEC);
    EXPECT_EQ(std::ifstream(proof.path).peek(), EOF);
}

TEST_F(ExecPipe, SucceedsOrSaysSoWithHoweverFewDescriptorsLeft)
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

// As a user who may have no further process; 0 when the runner says so as it should.
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

// --- Time, output and process limits, with and without the kernel announcing the end of a child ---

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

TEST_P(ExecPipeLimits, SleepsWhileTheCommandDoes)
{
    const auto before = processorTimeOfThread();
    EXPECT_EQ(run("sleep 400", quickLimits()).result, 0);
    EXPECT_EQ(run("close 1 close 2 sleep 400", quickLimits()).result, 0);
    EXPECT_LT(processorTimeOfThread() - before, 100ms);
}

TEST_P(ExecPipeLimits, AsksTheChildToEndAtTheTimeLimit)
{
    const CommandResult result = run("print early@n complain slow sleep 60000", limitedTo(300ms));
    EXPECT_TRUE(result.hasRun);
    EXPECT_EQ(result.result, 128 + SIGTERM);
    EXPECT_EQ(result.failure.waitStatus, SIGTERM);
    EXPECT_EQ(result.failure.errorNumber, ETIMEDOUT);
    EXPECT_THAT(result.failure.message, EndsWith("was ended by signal 15 (Terminated) after its time limit: slow"));
    EXPECT_THAT(lines, ElementsAre("early"));
}

TEST_P(ExecPipeLimits, KillsAChildThatIgnoresBeingAsked)
{
    const CommandResult result = run("ignore 15 print early@n sleep 60000", limitedTo(300ms));
    EXPECT_EQ(result.result, 128 + SIGKILL);
    EXPECT_EQ(result.failure.waitStatus, SIGKILL);
    EXPECT_THAT(lines, ElementsAre("early"));
}

TEST_P(ExecPipeLimits, TakesNoTimedOutCommandForASuccess)
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

TEST_P(ExecPipeLimits, KillsWhoeverOfTheGroupSurvivesItsLeader)
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

// Asks only when somebody of the group has said that it is ready.
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

TEST_P(ExecPipeLimits, KillsAWriterOverTheCapThatIgnoresBeingAsked)
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

TEST_F(ExecPipe, GivesTheMemoryOfADroppedOutputBack)
{
    RunLimits limits = quickLimits();
    limits.outputLines = 100000;
    Lines lines{"earlier"};
    EXPECT_EQ(runCommand(KIVCLAIM_LINE_WRITER " 200000", limits, lines).failure.errorNumber, EFBIG);
    EXPECT_THAT(lines, ElementsAre("earlier"));
    EXPECT_LT(lines.capacity(), 10U);
}

// --- A child that not even SIGKILL ends ---

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

TEST_F(ExecPipe, LeavesAChildBehindThatNothingEndsAndCollectsItLater)
{
    Lines lines{"earlier"};
    const CommandResult result = runCommand(probe + " print out@n complain stuck sleep 60000", hopelessLimits(), lines,
                                            {realSystemCalls().processDescriptor, &reachNobody});
    EXPECT_FALSE(result.hasRun);
    EXPECT_EQ(result.failure.errorNumber, ETIMEDOUT);
    EXPECT_EQ(result.failure.waitStatus, -1);
    EXPECT_THAT(result.failure.message, HasSubstr("left behind"));
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

TEST_F(ExecPipe, RemembersAChildLeftBehindAlsoWhenNoFileCanBeOpened)
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

TEST_F(ExecPipe, ForgetsAChildLeftBehindThatTheProcessCollectsItself)
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

// --- The process around it ---

TEST_F(ExecPipe, HonoursTheLimitOfTheCallInSeconds)
{
    Outcome outcome;
    EXPECT_GE(timeOf([&] { outcome = exec(probe + " sleep 60000", 1); }), 1000ms);
    EXPECT_EQ(outcome.result, 128 + SIGTERM);
    EXPECT_EQ(outcome.failure.waitStatus, SIGTERM);
}

TEST_F(ExecPipe, TakesAnImmenseLimitForNone)
{
    EXPECT_EQ(exec(probe + " exit 0", ULONG_MAX).result, 0);
    EXPECT_EQ(exec(probe + " exit 0", 1000000000).result, 0);
}

TEST_F(ExecPipe, WaitsASecondForThoseWhoOutliveTheChild)
{
    Outcome outcome;
    const auto time = timeOf([&] { outcome = exec(probe + " in-grandchild sleep 700 print late@n sleep 4000"); });
    EXPECT_THAT(outcome.lines, ElementsAre("late"));
    EXPECT_GE(time, 1700ms);
    EXPECT_LT(time, 4000ms);
}

namespace {

// Everything of the process that a run might disturb.
struct ProcessState {
    std::vector<std::string> signalActions;
    std::string mask;
    mode_t fileMask = 0;
    std::string directory;
    std::vector<std::string> environment;
};

std::string membersOf(const sigset_t& signals)
{
    std::string members;
    for (int signal = 1; signal < NSIG; ++signal) {
        members += ::sigismember(&signals, signal) == 1 ? '1' : '0';
    }
    return members;
}

std::string textOf(const struct sigaction& action)
{
    return testing::PrintToString(reinterpret_cast<void*>(action.sa_handler)) + " " + std::to_string(action.sa_flags) +
           " " + membersOf(action.sa_mask);
}

ProcessState stateOfProcess()
{
    ProcessState state;
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction action = {};
        if (::sigaction(signal, nullptr, &action) == 0) {
            state.signalActions.push_back(textOf(action));
        }
    }
    sigset_t mask;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    state.mask = membersOf(mask);
    state.fileMask = ::umask(0);
    ::umask(state.fileMask);
    char directory[PATH_MAX] = {};
    state.directory = ::getcwd(directory, sizeof directory);
    for (char** entry = environ; *entry != nullptr; ++entry) {
        state.environment.emplace_back(*entry);
    }
    return state;
}

}  // namespace

TEST_F(ExecPipe, ChangesNothingOfTheProcess)
{
    const ProcessState before = stateOfProcess();
    exec(probe + " exit 0");
    exec(probe + " exit 3");
    exec("/nonexistent/tool");
    Lines lines;
    runCommand(probe + " ignore 15 sleep 60000", limitedTo(50ms), lines);
    const ProcessState after = stateOfProcess();
    EXPECT_EQ(after.signalActions, before.signalActions);
    EXPECT_EQ(after.mask, before.mask);
    EXPECT_EQ(after.fileMask, before.fileMask);
    EXPECT_EQ(after.directory, before.directory);
    EXPECT_EQ(after.environment, before.environment);
}

namespace {

std::atomic<int> forks{0};

}  // namespace

TEST_F(ExecPipe, RunsNoForkHandlersOfTheProcess)
{
    ASSERT_EQ(::pthread_atfork([] { ++forks; }, nullptr, nullptr), 0);
    forks = 0;
    EXPECT_EQ(exec(probe + " exit 0").result, 0);
    EXPECT_EQ(forks, 0);
}

namespace {

std::chrono::microseconds quickestRun()
{
    auto quickest = std::chrono::microseconds::max();
    for (int i = 0; i < 20; ++i) {
        const auto start = std::chrono::steady_clock::now();
        exec(probe + " exit 0");
        const auto time = std::chrono::steady_clock::now() - start;
        quickest = std::min(quickest, std::chrono::duration_cast<std::chrono::microseconds>(time));
    }
    return quickest;
}

}  // namespace

TEST_F(ExecPipe, StartsACommandAsFastFromALargeProcessAsFromASmallOne)
{
    constexpr std::size_t bytes = std::size_t{1} << 30;
    const auto small = quickestRun();
    void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    ::madvise(memory, bytes, MADV_NOHUGEPAGE);  // the more pages, the longer a copy would take
    ::madvise(memory, bytes, MADV_POPULATE_WRITE);
    const auto large = quickestRun();
    ::munmap(memory, bytes);
    EXPECT_LT(large, small + 5ms) << "copying the page tables alone takes longer";
}

TEST_F(ExecPipe, RunsCommandsOfSeveralThreadsAtOnce)
{
    std::vector<std::thread> threads;
    threads.reserve(8);
    std::atomic<int> right{0};
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([&right, text = "thread" + std::to_string(number), number] {
            for (int i = 0; i < 20; ++i) {
                const Outcome outcome = exec(probe + " print " + text + "@n exit " + std::to_string(number));
                right += outcome.result == number && outcome.lines == Lines{text} ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 8 * 20);
}

namespace {

struct CancelledRun {
    std::atomic<bool> isRunning{false};
    int result = -1;
    int cancelState = -1;
};

void* runWhileBeingCancelled(void* argument)
{
    auto& run = *static_cast<CancelledRun*>(argument);
    run.isRunning = true;
    run.result = exec(probe + " sleep 300 exit 6").result;
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &run.cancelState);
    return nullptr;
}

}  // namespace

TEST_F(ExecPipe, HasTheLimitsThatHostsRelyOn)
{
    const kivclaim::host_internal::RunLimits limits;
    EXPECT_EQ(limits.wholeRun.count(), 0);
    EXPECT_EQ(limits.fromTermToKill.count(), 2000);
    EXPECT_EQ(limits.fromKillToLeave.count(), 10000);
    EXPECT_EQ(limits.silenceAfterEnd.count(), 1000);
    EXPECT_EQ(limits.outputBytes, 1073741824U);
    EXPECT_EQ(limits.outputLines, 67108864U);
}

TEST_F(ExecPipe, KillsAChildThatIgnoresSigtermTwoSecondsBehindTheTimeLimit)
{
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::string> output;
    ztfi_pdk_4_4::CFiExecPipePosix runner(1);
    EXPECT_EQ(runner.Exec(probe + " ignore 15 sleep 60000", output, "", 1, "", "", ""), 128 + SIGKILL);
    EXPECT_EQ(runner.getLastFailure().waitStatus, SIGKILL);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

TEST_F(ExecPipe, FinishesARunWhoseThreadIsCancelled)
{
    CancelledRun run;
    pthread_t thread;
    ASSERT_EQ(::pthread_create(&thread, nullptr, &runWhileBeingCancelled, &run), 0);
    while (!run.isRunning || hasNoChildren()) {
        std::this_thread::yield();
    }
    ::pthread_cancel(thread);
    void* end = PTHREAD_CANCELED;
    ::pthread_join(thread, &end);
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(run.result, 6);
    EXPECT_EQ(run.cancelState, PTHREAD_CANCEL_ENABLE) << "from now on the thread can be cancelled again";
}
