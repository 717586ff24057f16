// `kivclaim active-path`: command, plug-in, runner and a volume manager that only the command sees.
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using tests::Ended;
using tests::Process;

namespace {

class ActivePath : public testing::Test {
protected:
    // Two disks of two paths each, and lines for the behaviour.
    void volumeManager(const std::string& behaviour = "")
    {
        std::filesystem::copy_file(KIVCLAIM_ZTKIVADM, tools.path() + "/ztkivadm");
        std::filesystem::copy_file(KIVCLAIM_ZTDISK, tools.path() + "/ztdisk");
        work.addFile("state",
                     "path kiv0_1 sdc ENABLED PRIMARY\n"
                     "path kiv0_1 sdd ENABLED(A) SECONDARY\n"
                     "path kiv0_2 sde DISABLED PRIMARY\n"
                     "path kiv0_2 sdf ENABLED SECONDARY\n" +
                         behaviour);
    }

    Process command(std::vector<std::string> arguments, const std::string& program = KIVCLAIM_COMMAND) const
    {
        Process process(program, std::move(arguments));
        process.sees(tools.path(), "/usr/sbin").environment("KIVCLAIM_VM_STATE", work.path() + "/state");
        return process;
    }

    // With pauses that take no time.
    Ended activePath(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "active-path");
        return command(std::move(arguments))
            .environment("LD_PRELOAD", KIVCLAIM_INSTANT_SLEEP)
            .environment("KIVCLAIM_SLEEPS", work.path() + "/sleeps")
            .run();
    }

    std::string pauses() const { return work.contentOf("sleeps"); }

    // Whether a program of this name works on our volume manager's state; of any name, when it is empty.
    bool runs(const std::string& name) const
    {
        const auto contentOf = [](const std::filesystem::path& file) {
            std::ostringstream content;
            content << std::ifstream(file).rdbuf();
            return content.str();
        };
        const auto isIt = [&](const std::filesystem::directory_entry& process) {
            return contentOf(process.path() / "environ").find(work.path() + "/state") != std::string::npos &&
                   (name.empty() || contentOf(process.path() / "comm") == name + "\n");
        };
        const std::filesystem::directory_iterator processes("/proc");
        return std::any_of(begin(processes), end(processes), isIt);
    }

    tests::TemporaryFolder tools;
    tests::TemporaryFolder work;
};

}  // namespace

TEST_F(ActivePath, IsThatOfTheActiveRow)
{
    volumeManager();
    const Ended ended = activePath({"/dev/sdc"});
    EXPECT_EQ(ended.output, "/dev/sdd\n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(pauses(), "");
    EXPECT_EQ(activePath({"--waited", "/dev/sdc"}).output, "/dev/sdd\n");
    EXPECT_EQ(activePath({"/dev/sde"}).output, "/dev/sdf\n") << "an enabled path beats a primary one";
}

TEST_F(ActivePath, MayBeThePathThatWasAskedFor)
{
    volumeManager();
    const Ended ended = activePath({"/dev/sdd"});
    EXPECT_EQ(ended.output, "/dev/sdd\n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0) << "the volume manager has answered";
}

TEST_F(ActivePath, IsThePathItselfWithoutTheTool)
{
    const Ended ended = activePath({"/dev/sdc"});
    EXPECT_EQ(ended.output, "/dev/sdc\n");
    EXPECT_EQ(ended.errors,
              "kivclaim: /dev/sdc as it was given: the multipathing tool /usr/sbin/ztkivadm is not installed\n");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ActivePath, IsThePathItselfWhenTheNodeLookupFails)
{
    volumeManager("fail getkivnode 3 no\n");
    const Ended waited = activePath({"--waited", "/dev/sdc"});
    EXPECT_EQ(waited.output, "/dev/sdc\n");
    EXPECT_EQ(waited.errors, "kivclaim: /dev/sdc as it was given: the node lookup gave no answer\n");
    EXPECT_EQ(waited.status, 1);
    EXPECT_EQ(pauses(), "sleep 5\nsleep 5\nsleep 5\nsleep 5\n");
    activePath({"/dev/sdc"});
    EXPECT_EQ(pauses(), "sleep 5\nsleep 5\nsleep 5\nsleep 5\nsleep 10\nsleep 10\nsleep 10\nsleep 10\n");
}

TEST_F(ActivePath, IsThePathItselfWhenThePathLookupFails)
{
    volumeManager("fail getsubpaths 2\n");
    const Ended ended = activePath({"/dev/sdc"});
    EXPECT_EQ(ended.output, "/dev/sdc\n");
    EXPECT_EQ(ended.errors, "kivclaim: /dev/sdc as it was given: the path lookup gave no answer\n");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ActivePath, IsThePathItselfWhenNoPathIsUsable)
{
    volumeManager("path kiv0_3 sdg DISABLED SECONDARY\n");
    const Ended ended = activePath({"--trace", "2", "/dev/sdg"});
    EXPECT_EQ(ended.output, "/dev/sdg\n");
    EXPECT_THAT(ended.errors, HasSubstr("Unable to get enabled disk path for kiv node 'kiv0_3'\n"));
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ActivePath, FindsANodeAgainThatWasLost)
{
    volumeManager("lost kiv0_1\n");
    const Ended ended = activePath({"--waited", "--verbose", "/dev/sdc"});
    EXPECT_EQ(ended.output, "/dev/sdd\n");
    EXPECT_EQ(ended.errors,
              "kivclaim: attempt 1 of 4: asking for the node\nkivclaim: attempt 2 of 4: asking for the node\n");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(pauses(), "sleep 5\n");
}

TEST_F(ActivePath, PrintsALineForEachRefreshedAttempt)
{
    volumeManager("then fail getkivnode 1\n");
    const Ended ended = activePath({"--verbose", "/dev/sdc"});
    EXPECT_EQ(ended.errors,
              "kivclaim: attempt 1 of 4: rescanning all disks\nkivclaim: attempt 2 of 4: rescanning all disks\n"
              "kivclaim: attempt 3 of 4: rescanning all disks\nkivclaim: attempt 4 of 4: rescanning all disks\n"
              "kivclaim: /dev/sdc as it was given: the node lookup gave no answer\n");
    EXPECT_EQ(pauses(), "sleep 10\nsleep 10\nsleep 10\nsleep 10\n");
}

TEST_F(ActivePath, AWarningBeforeTheHeaderIsNoAnswer)
{
    volumeManager("warn getkivnode the disk database is old\n");
    const Ended ended = activePath({"--waited", "--trace", "2", "/dev/sdc"});
    EXPECT_EQ(ended.output, "/dev/sdc\n");
    EXPECT_THAT(ended.errors, HasSubstr("Warning - no valid output of command.\n"));
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ActivePath, GarbageFromThePathQueryIsNoAnswer)
{
    volumeManager("garbage getsubpaths \\x1b[2J\n");
    const Ended ended = activePath({"/dev/sdc"});
    EXPECT_EQ(ended.output, "/dev/sdc\n");
    EXPECT_EQ(ended.errors, "kivclaim: /dev/sdc as it was given: the path lookup gave no answer\n");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ActivePath, AnAnswerWithoutANodeIsReportedAsAFailedNodeLookup)
{
    volumeManager();
    tools.addScript("ztkivadm", "echo one\necho two\n");
    const Ended ended = activePath({"/dev/sdc"});
    EXPECT_EQ(ended.output, "/dev/sdc\n");
    EXPECT_EQ(ended.errors, "kivclaim: /dev/sdc as it was given: the node lookup gave no answer\n");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ActivePath, FollowsAnAnswerThatChangesBetweenTwoCalls)
{
    volumeManager("then path kiv0_1 sdd DISABLED SECONDARY\n");
    const Ended ended = activePath({"/dev/sdd"});
    EXPECT_EQ(ended.output, "/dev/sdc\n") << "the active path went away before it was asked for";
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(ActivePath, RefusesAPathThatIsNotANativeDisk)
{
    volumeManager();
    for (const char* const path : {"/dev/mapper/mpatha", "/dev/sd", "sdc", "/dev/sdc rm", "/dev/sdc,sdd", "/dev/sdc\n",
                                   "/dev/sdc;x", "", "/host/dev/sdc", "/dev/sdC"}) {
        const Ended ended = activePath({path});
        EXPECT_EQ(ended.output, "") << path;
        EXPECT_THAT(ended.errors, HasSubstr("is no native disk path; give one such as /dev/sdc\n"));
        EXPECT_EQ(ended.status, 2) << path;
    }
}

TEST_F(ActivePath, AnswersForSeveralDisksInTheirOrder)
{
    volumeManager();
    EXPECT_EQ(activePath({"/dev/sde", "/dev/sdc"}).output, "/dev/sdf\n/dev/sdd\n");
}

TEST_F(ActivePath, ReadsDisksFromStandardInputAndSkipsOtherPaths)
{
    volumeManager();
    const Ended ended = command({"active-path", "-", "/dev/sdc"}).reads("/dev/sdc1\n/dev/sde\n").run();
    EXPECT_EQ(ended.output, "/dev/sdf\n/dev/sdd\n");
    EXPECT_EQ(ended.errors, "kivclaim: '/dev/sdc1' is a partition; ask about its disk, /dev/sdc\n");
    EXPECT_EQ(ended.status, 2);
}

TEST_F(ActivePath, RefusesAPartitionAndNamesItsDiskBeforeAnythingIsDone)
{
    volumeManager();
    const Ended ended = activePath({"/dev/sde", "/dev/sdaa12"});
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.errors, "kivclaim: '/dev/sdaa12' is a partition; ask about its disk, /dev/sdaa\n");
    EXPECT_EQ(ended.status, 2);
}

TEST_F(ActivePath, TheTraceNamesTheToolThatPrintedNothing)
{
    volumeManager();
    tools.addScript("ztkivadm", "exit 0\n");
    const Ended ended = activePath({"--waited", "--trace", "2", "/dev/sdc"});
    EXPECT_THAT(ended.errors,
                testing::ContainsRegex("Warning - no output of command.\n.* The command that printed no table is "
                                       "./usr/sbin/ztkivadm +getkivnode .*sdc"));
    EXPECT_EQ(ended.status, 1);
}

TEST_F(ActivePath, ASignalEndsItWithTheProgramThatItRunsAndStartsNoOther)
{
    volumeManager("hang getkivnode\n");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        const std::string trace = work.path() + "/trace" + std::to_string(signal);
        Process process = command({"active-path", "--trace-file", trace, "/dev/sdc"});
        process.start();
        while (!runs("ztkivadm")) {
        }
        process.signal(signal);
        EXPECT_EQ(process.finish().signal, signal);
        EXPECT_FALSE(runs(""));
        const std::string records = work.contentOf("trace" + std::to_string(signal));
        const std::string command = "ExecuteCommand command:";
        ASSERT_THAT(records, HasSubstr(command));
        EXPECT_EQ(records.find(command), records.rfind(command)) << "one command was run";
    }
}

TEST_F(ActivePath, ASignalEndsAProgramThatIgnoresSigtermAndItsChildren)
{
    volumeManager();
    tools.addScript("ztkivadm", "(trap '' TERM; exec /bin/sleep 300) &\n(trap '' TERM; exec /bin/sleep 300)\n");
    Process process = command({"active-path", "/dev/sdc"});
    process.start();
    while (!runs("sleep")) {
    }
    process.signal(SIGINT);
    EXPECT_EQ(process.finish().signal, SIGINT);
    EXPECT_FALSE(runs(""));
}

TEST_F(ActivePath, ASignalThatIsIgnoredStaysIgnored)
{
    volumeManager("hang getkivnode\n");
    Process process = command({"-c", "trap '' HUP; exec " KIVCLAIM_COMMAND " active-path /dev/sdc"}, "sh");
    process.start();
    while (!runs("ztkivadm")) {
    }
    process.signal(SIGHUP);
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish().signal, SIGTERM);
}

TEST_F(ActivePath, AnInterruptEndsAPause)
{
    volumeManager("fail getkivnode 1\n");
    Process process = command({"active-path", "--trace", "6", "/dev/sdc"});
    process.start();
    process.awaitError("Obtaining kiv nodes failed. need to retry.");
    process.signal(SIGTERM);
    const Ended ended = process.finish();
    EXPECT_EQ(ended.signal, SIGTERM);
    EXPECT_THAT(ended.errors.substr(ended.errors.find("need to retry")), Not(HasSubstr("Entering")))
        << "nothing was done any more";
    EXPECT_FALSE(runs(""));
}

TEST_F(ActivePath, PausesForReal)
{
    volumeManager("lost kiv0_1\n");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(command({"active-path", "--waited", "/dev/sdc"}).run().output, "/dev/sdd\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(ActivePath, AsksOnATerminalBeforeTheNodeIsForgotten)
{
    volumeManager();
    const std::string line = std::string(KIVCLAIM_COMMAND) + " active-path /dev/sdc";
    const Ended no = command({"-qec", line, "/dev/null"}, "script").reads("n\n").run();
    EXPECT_THAT(no.output, AllOf(HasSubstr("The volume manager will remove the node of /dev/sdc and rescan all disks."),
                                 HasSubstr("Go on? [y/N] "),
                                 HasSubstr("kivclaim: not confirmed, nothing was done; --waited looks up without")));
    EXPECT_EQ(no.status, 2);
    EXPECT_THAT(work.contentOf("state"), Not(HasSubstr("lost")));
    const Ended yes = command({"-qec", line, "/dev/null"}, "script").reads("y\n").run();
    EXPECT_THAT(yes.output, HasSubstr("/dev/sdd\r\n"));
    EXPECT_EQ(yes.status, 0);
    const Ended several = command({"-qec", line + " /dev/sde", "/dev/null"}, "script").reads("n\n").run();
    EXPECT_THAT(several.output, HasSubstr("will remove the nodes of /dev/sdc and /dev/sde and rescan all disks."));
    const Ended redirected = command({"-qec", line + " 2>/dev/null", "/dev/null"}, "script").reads("n\n").run();
    EXPECT_THAT(redirected.output, HasSubstr("Go on? [y/N] ")) << "the terminal is asked, wherever errors go";
    EXPECT_EQ(redirected.status, 2);
}

TEST_F(ActivePath, DoesNotAskWhenToldSoOrWhenNothingChanges)
{
    volumeManager();
    for (const char* const option : {" --yes", " --waited"}) {
        const Ended ended =
            command({"-qec", KIVCLAIM_COMMAND " active-path /dev/sdc" + std::string(option), "/dev/null"}, "script")
                .run();
        EXPECT_THAT(ended.output, AllOf(HasSubstr("/dev/sdd\r\n"), Not(HasSubstr("Go on?"))));
    }
    std::filesystem::remove(tools.path() + "/ztkivadm");
    EXPECT_THAT(command({"-qec", KIVCLAIM_COMMAND " active-path /dev/sdc", "/dev/null"}, "script").run().output,
                AllOf(HasSubstr("is not installed"), Not(HasSubstr("Go on?"))));
}

TEST_F(ActivePath, ShowsALiveLineOnATerminalAndClearsIt)
{
    volumeManager("lost kiv0_1\n");
    const std::string line = std::string(KIVCLAIM_COMMAND) + " active-path --waited /dev/sdc";
    const Ended ended = command({"-qec", line, "/dev/null"}, "script").run();
    EXPECT_THAT(ended.output, HasSubstr("attempt 1 of 4: no node yet, pausing for 5 s"));
    EXPECT_THAT(ended.output, HasSubstr("attempt 1 of 4: no node yet, pausing for 1 s"));
    EXPECT_THAT(ended.output, testing::EndsWith("\r\x1b[K/dev/sdd\r\n"));
    EXPECT_EQ(ended.status, 0);
}
