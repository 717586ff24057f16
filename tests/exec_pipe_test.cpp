// What the command runner makes of a command, what it gives the child, and how it cuts the output into lines.
#include "framework/cfiexecpipe.h"

#include "tests/runner_fixture.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <iterator>

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using ztfi_pdk_4_4::CFiExecPipePosix;
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

}  // namespace

class ExecPipe : public RunnerTest {};

// --- Words ---

TEST_F(ExecPipe, SplitsTheCommandAtRunsOfBlanks)
{
    EXPECT_THAT(exec("  " + probe + "   arguments one \t two\t\tthree  ").lines,
                ElementsAre("<one>", "<two>", "<three>"));
}

TEST_F(ExecPipe, PassesShellMetacharactersAsPlainBytes)
{
    EXPECT_THAT(exec(probe + " arguments ; $(id) `id` 'a \"b c\" * ? ~ && || | > < # \\ $HOME {a,b} !! \xff").lines,
                ElementsAre("<;>", "<$(id)>", "<`id`>", "<'a>", "<\"b>", "<c\">", "<*>", "<?>", "<~>", "<&&>", "<||>",
                            "<|>", "<>>", "<<>", "<#>", "<\\>", "<$HOME>", "<{a,b}>", "<!!>", "<\xff>"));
}

TEST_F(ExecPipe, TreatsALineFeedAsAPlainByteOfAWord)
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
