// What the command says beside the library's answers: that one is unsure, why and what to do; that a name misleads;
// what is waited for. The devices and the tool that lists logical volumes are played: no rights are needed.
#include "tests/mock_machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using tests::Ended;
using tests::Process;

namespace {

constexpr char volume[] = "  LV Name                lvol1\n  VG Name                vg00\n";

class UnsureCommand : public testing::Test {
protected:
    void lvdisplay(const std::string& output, const std::string& errors = "", int status = 0)
    {
        tools.addFile("listing", output);
        tools.addFile("errors", errors);
        tools.addScript("lvdisplay", "/bin/cat /usr/sbin/listing\n/bin/cat /usr/sbin/errors >&2\nexit " +
                                         std::to_string(status) + "\n");
    }

    // Its children end when they like: one ignores SIGTERM.
    void hangingLvdisplay()
    {
        tools.addScript("lvdisplay", "(trap '' TERM; exec /bin/sleep 600) &\nexec /bin/sleep 600\n");
    }

    Process command(std::vector<std::string> arguments, const std::string& program = KIVCLAIM_COMMAND)
    {
        Process process(program, std::move(arguments));
        process.sees(tools.path(), "/usr/sbin").environment("KIVCLAIM_TEST_MARK", tools.path());
        return process;
    }

    Ended onMachine(std::vector<std::string> arguments)
    {
        return machine.process(KIVCLAIM_COMMAND, std::move(arguments))
            .environment("LC_ALL", "C")
            .sees(tools.path(), "/usr/sbin")
            .run();
    }

    // Whether any program of this name runs that a command of this test has started; of any name, when it is empty.
    bool runs(const std::string& name) const
    {
        const auto contentOf = [](const std::filesystem::path& file) {
            std::ostringstream content;
            content << std::ifstream(file).rdbuf();
            return content.str();
        };
        const auto isIt = [&](const std::filesystem::directory_entry& process) {
            return contentOf(process.path() / "environ").find("KIVCLAIM_TEST_MARK=" + tools.path()) !=
                       std::string::npos &&
                   (name.empty() || contentOf(process.path() / "comm") == name + "\n");
        };
        const std::filesystem::directory_iterator processes("/proc");
        return std::any_of(begin(processes), end(processes), isIt);
    }

    // A process that was killed may need a moment to be gone.
    bool isGoneSoon() const
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (runs("") && std::chrono::steady_clock::now() < end) {
        }
        return !runs("");
    }

    // While lvdisplay hangs for it, each of the signals ends the tool and then the command.
    void expectASignalToEndTheTool(const std::vector<std::string>& arguments)
    {
        hangingLvdisplay();
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            Process process = command(arguments);
            process.start();
            while (!runs("sleep")) {
            }
            process.signal(signal);
            const Ended ended = process.finish();
            EXPECT_EQ(ended.signal, signal);
            EXPECT_EQ(ended.output, "");
            EXPECT_TRUE(isGoneSoon()) << signal;
        }
    }

    tests::MockMachine machine;
    tests::TemporaryFolder tools;
};

}  // namespace

TEST_F(UnsureCommand, AFailedListingIsReportedWithItsMessageAndTheRemedy)
{
    lvdisplay("", "  WARNING: something\n  no locking\n", 5);
    const Ended ended =
        command({"claim", "/dev/mapper/vg00-lvol1"}).environment("LD_PRELOAD", KIVCLAIM_TOLD_USER).run();
    EXPECT_EQ(ended.output, "16 device-mapper /dev/mapper/vg00-lvol1\n");
    EXPECT_EQ(ended.errors,
              "kivclaim: the answer about /dev/mapper/vg00-lvol1 is unsure, because /sbin/lvdisplay exited with status "
              "5: no locking; run kivclaim as root\n"
              "kivclaim: /dev/mapper/vg00-lvol1: no such device; the name alone decides\n");
    EXPECT_EQ(ended.status, 3);
}

TEST_F(UnsureCommand, AMissingToolIsReportedWithThePackage)
{
    EXPECT_THAT(command({"claim", "/dev/mapper/vg00-lvol1"}).run().errors,
                HasSubstr("is unsure, because /sbin/lvdisplay could not be run: it cannot be started (No such file or "
                          "directory); install lvm2\n"));
}

// As with a missing disk. The test may run as root or not.
TEST_F(UnsureCommand, AListingThatFailedAfterPrintingVolumesIsReported)
{
    lvdisplay(volume, "  Couldn't find device\n", 5);
    const Ended ended = command({"claim", "/dev/mapper/vg00-lvol1"}).run();
    EXPECT_EQ(ended.output, "16 device-mapper /dev/mapper/vg00-lvol1\n");
    EXPECT_THAT(ended.errors, HasSubstr("because /sbin/lvdisplay exited with status 5 after printing 1 volume: "
                                        "Couldn't find device; "));
    EXPECT_EQ(ended.status, 3);
}

TEST_F(UnsureCommand, AToolThatASignalEndedIsReported)
{
    tools.addScript("lvdisplay", "kill -9 $$\n");
    EXPECT_THAT(command({"claim", "/dev/mapper/x"}).run().errors,
                HasSubstr("because /sbin/lvdisplay was ended by signal 9; "));
}

TEST_F(UnsureCommand, EveryQuestionExitsWithThree)
{
    lvdisplay("", "", 5);
    for (const std::vector<std::string>& question :
         std::vector<std::vector<std::string>>{{"claim", "/dev/mapper/x"},
                                               {"is-partition", "/dev/mapper/x"},
                                               {"partition", "/dev/mapper/x", "1"},
                                               {"whole", "/dev/mapper/x"},
                                               {"explain", "/dev/mapper/x"},
                                               {"audit", "/dev/mapper/x"}}) {
        const Ended ended = command(question).run();
        EXPECT_THAT(ended.errors, HasSubstr("unsure, because /sbin/lvdisplay exited with status 5")) << question[0];
        EXPECT_EQ(ended.status, 3) << question[0];
        std::vector<std::string> silent = question;
        silent.insert(silent.begin(), "--no-warn");
        const Ended quiet = command(silent).run();
        EXPECT_EQ(quiet.errors, "");
        EXPECT_EQ(quiet.output, ended.output) << "standard output is the library's answer";
        EXPECT_EQ(quiet.status, 3);
    }
}

TEST_F(UnsureCommand, AnUnsureAnswerCountsMoreThanANoAndLessThanAFailure)
{
    lvdisplay("", "", 5);
    EXPECT_EQ(command({"claim", "/dev/null", "/dev/mapper/x"}).run().status, 3);
    EXPECT_EQ(command({"claim", "/dev/mapper/x", "/dev/null"}).run().status, 3);
    EXPECT_EQ(command({"claim", "/dev/mapper/x", ""}).run().status, 2);
    EXPECT_EQ(command({"claim", "/dev/null"}).run().status, 1) << "the listing was not needed";
}

TEST_F(UnsureCommand, ExplainSaysThatAVolumeWouldBeClaimedToo)
{
    lvdisplay("", "", 5);
    EXPECT_THAT(command({"explain", "/dev/mapper/x"}).run().output,
                AllOf(HasSubstr("Claimed by device-mapper, level 16: the listing of logical volumes failed, so a "
                                "volume would be claimed too.\n"),
                      Not(HasSubstr("the only module"))));
}

TEST_F(UnsureCommand, WithoutLvmNothingIsReportedAboutDevices)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    const Ended ended = onMachine({"claim", "/dev/mapper/mpatha"});
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(onMachine({"list", "--strict"}).status, 0);
    EXPECT_EQ(onMachine({"claim", "/dev/mapper/gone"}).status, 3) << "it may be a volume that is not active";
    machine.mapped("dm-1", "vg00-lvol1", "LVM-AbCd");
    EXPECT_EQ(onMachine({"claim", "/dev/mapper/mpatha"}).status, 3) << "there are volumes";
}

TEST_F(UnsureCommand, ListReportsItOnceForAllDevices)
{
    lvdisplay("", "", 5);
    machine.mapped("dm-0", "a", "mpath-1").mapped("dm-1", "b", "mpath-2").disk("sda");
    const Ended ended = onMachine({"list", "-r"});
    EXPECT_THAT(ended.output, HasSubstr("DEVICE STACK LEVEL PART WHOLE UNSURE\n/dev/mapper/a device-mapper 16   "
                                        "/sbin/lvdisplay\\x20exited\\x20with\\x20status\\x205\n"));
    EXPECT_THAT(ended.errors, HasSubstr("kivclaim: the answers about 2 devices are unsure, because /sbin/lvdisplay "
                                        "exited with status 5; "));
    EXPECT_EQ(ended.status, 0);
}

TEST_F(UnsureCommand, APathWithoutADeviceIsReported)
{
    lvdisplay(volume);
    const Ended claim = onMachine({"claim", "/dev/sdzzz"});
    EXPECT_EQ(claim.output, "2 native /dev/sdzzz\n");
    EXPECT_EQ(claim.errors, "kivclaim: /dev/sdzzz: no such device; the name alone decides\n");
    EXPECT_EQ(claim.status, 0);
    const Ended audit = onMachine({"audit", "/dev/nope"});
    EXPECT_EQ(audit.errors, "kivclaim: /dev/nope: no such device; the name alone decides\n");
    EXPECT_EQ(audit.status, 0);
}

TEST_F(UnsureCommand, ANameThatHidesAnotherAnswerIsReported)
{
    lvdisplay(volume);
    machine.mapped("dm-0", "plain", "").node("dm-0", "dm-0").disk("sda").node("emcpowera", "sda");
    const Ended ended = onMachine({"claim", "/dev/dm-0"});
    EXPECT_EQ(ended.output, "0 none /dev/dm-0\n");
    EXPECT_EQ(
        ended.errors,
        "kivclaim: /dev/dm-0 is /dev/mapper/plain, which gets the answer 16 device-mapper; --resolve asks by that "
        "name\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(onMachine({"claim", "--no-warn", "/dev/dm-0"}).errors, "");
    EXPECT_THAT(onMachine({"claim", "/dev/emcpowera"}).errors, HasSubstr("/dev/emcpowera is /dev/sda, which gets the "
                                                                         "answer 2 native; "));
    EXPECT_EQ(onMachine({"claim", "/dev/mapper/plain", "/dev/sda"}).errors, "");
}

TEST_F(UnsureCommand, ResolveAsksByTheKernelsName)
{
    lvdisplay(volume);
    machine.mapped("dm-0", "plain", "").node("dm-0", "dm-0");
    const Ended ended = onMachine({"claim", "--resolve", "/dev/dm-0", "/dev/sdzzz"});
    EXPECT_EQ(ended.output, "16 device-mapper /dev/mapper/plain\n2 native /dev/sdzzz\n");
    EXPECT_EQ(ended.errors, "kivclaim: /dev/sdzzz: no such device; the name alone decides\n");
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(onMachine({"explain", "--resolve", "/dev/dm-0"}).output, HasSubstr("/dev/mapper/plain\nModules,"));
    EXPECT_THAT(onMachine({"audit", "--resolve", "--json", "/dev/dm-0"}).output,
                HasSubstr("\"device\": \"/dev/mapper/plain\""));
}

// As Ubuntu names its root.
TEST_F(UnsureCommand, AVolumeThatIsClaimedBecauseOfItsDashesIsReported)
{
    lvdisplay("  LV Name                ubuntu-lv\n  VG Name                ubuntu-vg\n");
    machine.mapped("dm-0", "ubuntu--vg-ubuntu--lv", "LVM-AbCd");
    const Ended ended = onMachine({"claim", "/dev/mapper/ubuntu--vg-ubuntu--lv"});
    EXPECT_EQ(ended.output, "16 device-mapper /dev/mapper/ubuntu--vg-ubuntu--lv\n");
    EXPECT_EQ(ended.errors,
              "kivclaim: the kernel calls /dev/mapper/ubuntu--vg-ubuntu--lv a logical volume; 'kivclaim audit' tells "
              "why the library claims it\n");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(UnsureCommand, AListWithoutSysfsFails)
{
    const tests::TemporaryFolder empty;
    for (const char* const form : {"-J", "-n", "--luns"}) {
        const Ended ended = command({"list", form}).sees(empty.path(), "/sys").run();
        EXPECT_EQ(ended.output, "") << form;
        EXPECT_THAT(ended.errors, HasSubstr("cannot read sys/class/block"));
        EXPECT_EQ(ended.status, 2);
    }
}

TEST_F(UnsureCommand, UnexpectedArgumentsAreQuotedInTheirOrder)
{
    EXPECT_THAT(command({"partition", "/dev/sda", "1", "second", "third"}).run().errors,
                HasSubstr("kivclaim: 'second', 'third' were not expected; usage: kivclaim partition"));
}

TEST_F(UnsureCommand, ASignalEndsTheToolAndItsGroupAndThenTheCommand)
{
    hangingLvdisplay();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        for (const char* const question : {"claim", "audit", "explain"}) {
            Process process = command({question, "/dev/mapper/x"});
            process.start();
            while (!runs("sleep")) {
            }
            process.signal(signal);
            const Ended ended = process.finish();
            EXPECT_EQ(ended.signal, signal) << question;
            EXPECT_EQ(ended.output, "") << "no answer without the listing";
            EXPECT_TRUE(isGoneSoon()) << question;
        }
    }
}

// These programs are not run by the bundled host alone.
TEST_F(UnsureCommand, ASignalEndsTheToolOfARecordingAndThenTheCommand)
{
    const tests::TemporaryFolder recordings;
    expectASignalToEndTheTool({"record", recordings.path() + "/machine"});
    EXPECT_FALSE(std::filesystem::exists(recordings.path() + "/machine"));
}

#ifdef HOST_FRAMEWORK
TEST_F(UnsureCommand, ASignalEndsTheToolOfACheckedHostAndThenTheCommand)
{
    expectASignalToEndTheTool({"--check-host", HOST_FRAMEWORK});
}
#endif

// A command that is started with SIGCHLD ignored has its tools started by another process.
TEST_F(UnsureCommand, ASignalAlsoEndsAToolThatIsNoChild)
{
    hangingLvdisplay();
    Process process = command({"--ignore-signal=CHLD", KIVCLAIM_COMMAND, "claim", "/dev/mapper/x"}, "env");
    process.start();
    while (!runs("sleep")) {
    }
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish().signal, SIGTERM);
    EXPECT_TRUE(isGoneSoon());
}

// A program that is started with SIGCHLD ignored is not told how its own ones end. Not with trap: dash undoes it.
TEST_F(UnsureCommand, ARecordingUnderAParentThatIgnoresItsChildrenHasTheListing)
{
    lvdisplay(volume);
    const tests::TemporaryFolder recordings;
    const std::string recording = recordings.path() + "/machine";
    const Ended ended = command({"--ignore-signal=CHLD", KIVCLAIM_COMMAND, "record", recording}, "env").run();
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(recordings.contentOf("machine/kivclaim/commands/sbin/lvdisplay/output"), volume);
}

TEST_F(UnsureCommand, ASignalEndsItWhileItWaitsForPaths)
{
    Process process = command({"claim", "-"});
    process.start();
    process.write("/dev/sda\n");
    process.readLine();
    process.signal(SIGTERM);
    EXPECT_EQ(process.finish().signal, SIGTERM);
}

TEST_F(UnsureCommand, ALineOnATerminalNamesTheToolUntilItHasEnded)
{
    tools.addScript("lvdisplay", "/bin/sleep 4\n");
    const std::string line = std::string(KIVCLAIM_COMMAND) + " --no-warn claim /dev/mapper/x";
    const Ended ended = command({"-qec", line, "/dev/null"}, "script").run();
    EXPECT_THAT(ended.output, HasSubstr("\r\x1b[Kkivclaim: waiting for /sbin/lvdisplay, for 610 s at most"));
    EXPECT_THAT(ended.output, EndsWith("s at most\r\x1b[K16 device-mapper /dev/mapper/x\r\n"));
    EXPECT_EQ(command({"--no-warn", "claim", "/dev/mapper/x"}).run().errors, "") << "on a terminal only";
}

TEST_F(UnsureCommand, ALineOnATerminalTellsWhatARecordingWaitsFor)
{
    tools.addScript("lvdisplay", "/bin/sleep 4\n");
    const tests::TemporaryFolder recordings;
    const std::string line = std::string(KIVCLAIM_COMMAND) + " record " + recordings.path() + "/machine";
    const Ended ended = command({"-qec", line, "/dev/null"}, "script").run();
    EXPECT_THAT(ended.output, HasSubstr("\r\x1b[Kkivclaim: waiting for /sbin/lvdisplay, for 598 s at most"));
    EXPECT_THAT(ended.output, EndsWith("s at most\r\x1b[K"));
}

TEST_F(UnsureCommand, AQuickToolHasNoLine)
{
    lvdisplay("");
    const std::string line = std::string(KIVCLAIM_COMMAND) + " --no-warn claim /dev/mapper/x";
    EXPECT_EQ(command({"-qec", line, "/dev/null"}, "script").run().output, "16 device-mapper /dev/mapper/x\r\n");
}
