// `kivclaim --sysroot`: the answers about a recorded machine, what they say about what was not recorded, and that they
// take nothing from this machine.
#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using tests::Ended;

namespace {

constexpr char volumes[] =
    "  --- Logical volume ---\n  LV Path                /dev/vg00/lvol1\n  LV Name                lvol1\n"
    "  VG Name                vg00\n   \n";
constexpr char commandPlace[] = "kivclaim/commands/sbin/lvdisplay/";

class Sysroot : public testing::Test {
protected:
    Sysroot()
    {
        directory.scsiDisk("sda", "0:0:0:0").partition("sda", 1).scsiDisk("sdb", "0:0:0:1");
        directory.multipathMap("dm-0", "mpatha", "36001", {"sdb"}).multipathPartition("dm-1", "dm-0", 1);
        directory.volume("dm-2", "vg00-lvol1", {"sda1"});
        release("6.1.0-18-amd64\n");
        record("output", volumes);
    }

    // Another text in the file about /sbin/lvdisplay.
    void record(const std::string& file, const std::string& text) { directory.file(commandPlace + file, text); }
    void release(const std::string& text) { directory.file("proc/sys/kernel/osrelease", text); }
    void forgetCommands() { directory.remove("kivclaim"); }
    std::string path(const std::string& place) const { return folder.path() + "/" + place; }

    tests::Process process(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--sysroot", folder.path()});
        tests::Process process(KIVCLAIM_COMMAND, std::move(arguments));
        process.environment("LC_ALL", "C");
        return process;
    }
    Ended ask(std::vector<std::string> arguments) const { return process(std::move(arguments)).run(); }

    void expectRefused(const Ended& ended, const std::string& message) const
    {
        EXPECT_EQ(ended.output, "");
        EXPECT_EQ(ended.errors, "kivclaim: " + message + "\n");
        EXPECT_EQ(ended.status, 2);
    }

    tests::TemporaryFolder folder;
    tests::SysfsDirectory directory{folder.path()};
};

}  // namespace

TEST_F(Sysroot, TheRecordedListingDecidesAboutVolumes)
{
    const Ended ended = ask({"claim", "/dev/mapper/mpatha", "/dev/mapper/vg00-lvol1", "/dev/sda1"});
    EXPECT_EQ(ended.output, "16 device-mapper /dev/mapper/mpatha\n0 none /dev/mapper/vg00-lvol1\n2 native /dev/sda1\n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 1);
}

TEST_F(Sysroot, ALinkIsAnsweredByItsNameAndTheDeviceBehindItIsNamed)
{
    directory.link("/dev/disk/by-id/wwn-0x1", "../../sda").link("/dev/disk/by-id/dm-uuid", "../../dm-0");
    const Ended ended = ask({"claim", "/dev/disk/by-id/wwn-0x1", "/dev/disk/by-id/dm-uuid"});
    EXPECT_EQ(ended.output, "0 none /dev/disk/by-id/wwn-0x1\n0 none /dev/disk/by-id/dm-uuid\n");
    EXPECT_EQ(ended.errors,
              "kivclaim: /dev/disk/by-id/wwn-0x1 is /dev/sda, which gets the answer 2 native; --resolve asks by that "
              "name\n"
              "kivclaim: /dev/disk/by-id/dm-uuid is /dev/mapper/mpatha, which gets the answer 16 device-mapper; "
              "--resolve asks by that name\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ask({"--resolve", "claim", "/dev/disk/by-id/wwn-0x1", "/dev/disk/by-id/dm-uuid"}).output,
              "2 native /dev/sda\n16 device-mapper /dev/mapper/mpatha\n");
}

TEST_F(Sysroot, AnAnswerThatNeedsAMissingListingIsUnsure)
{
    forgetCommands();
    const Ended ended = ask({"claim", "/dev/sda1", "/dev/mapper/mpatha", "/dev/mapper/vg00-lvol1"});
    EXPECT_EQ(ended.output,
              "2 native /dev/sda1\n16 device-mapper /dev/mapper/mpatha\n16 device-mapper /dev/mapper/vg00-lvol1\n");
    const std::string reason =
        " is unsure, because no outcome of /sbin/lvdisplay was recorded in " + path(commandPlace) + "output\n";
    EXPECT_EQ(ended.errors, "kivclaim: the answer about /dev/mapper/mpatha" + reason +
                                "kivclaim: the answer about /dev/mapper/vg00-lvol1" + reason +
                                "kivclaim: the kernel calls /dev/mapper/vg00-lvol1 a logical volume; 'kivclaim audit' "
                                "tells why the library claims it\n");
    EXPECT_EQ(ended.status, 3);
}

TEST_F(Sysroot, TheToolOfThisMachineIsNeverRun)
{
    tests::TemporaryFolder tools;
    tools.addScript("lvdisplay", "echo ran >/usr/sbin/ran\n");
    forgetCommands();
    process({"claim", "/dev/mapper/mpatha"}).sees(tools.path(), "/usr/sbin").run();
    EXPECT_NE(access((tools.path() + "/ran").c_str(), F_OK), 0);
}

TEST_F(Sysroot, TheRecordedReleaseNamesPartitions)
{
    EXPECT_EQ(ask({"partition", "/dev/mapper/mpatha", "3"}).output, "/dev/mapper/mpatha-part3\n");
    release("2.6.32.12-0.7-default\n");
    const Ended ended = ask({"partition", "/dev/mapper/mpatha", "3"});
    EXPECT_EQ(ended.output, "/dev/mapper/mpatha_part3\n");
    EXPECT_EQ(ended.errors, "");
}

TEST_F(Sysroot, AnAnswerThatNeedsAMissingReleaseIsUnsure)
{
    directory.remove("proc/sys/kernel/osrelease");
    const Ended ended = ask({"partition", "/dev/mapper/mpatha", "3"});
    EXPECT_EQ(ended.output, "/dev/mapper/mpatha\n");
    EXPECT_EQ(ended.errors,
              "kivclaim: the answer about /dev/mapper/mpatha is unsure, because no kernel release was "
              "recorded in " +
                  path("proc/sys/kernel/osrelease") + "\n");
    EXPECT_EQ(ask({"claim", "/dev/mapper/mpatha"}).errors, "");
}

TEST_F(Sysroot, NodesThatWereNotRecordedExistWhenTheirDevicesDo)
{
    EXPECT_EQ(ask({"is-partition", "/dev/mapper/mpatha-part12"}).output, "yes /dev/mapper/mpatha-part12\n");
    directory.remove("sys/class/block/dm-1").remove("sys/block/dm-1");
    EXPECT_EQ(ask({"is-partition", "/dev/mapper/mpatha-part12"}).output, "no /dev/mapper/mpatha-part12\n");
    directory.file("dev/mapper/mpatha-part1", "");
    EXPECT_EQ(ask({"is-partition", "/dev/mapper/mpatha-part12"}).output, "yes /dev/mapper/mpatha-part12\n");
}

TEST_F(Sysroot, OnAnUnknownReleaseTheRecordedNodesDecide)
{
    release("3.10.0\n");
    EXPECT_EQ(ask({"partition", "/dev/mapper/mpatha", "3"}).output, "/dev/mapper/mpatha\n");
    directory.link("/dev/mapper/mpathap3", "../sda1");
    EXPECT_EQ(ask({"partition", "/dev/mapper/mpatha", "3"}).output, "/dev/mapper/mpathap3\n");
}

TEST_F(Sysroot, NodesOfThisMachineAreIgnored)
{
    const tests::TemporaryFolder here;
    ASSERT_EQ(mkdir((here.path() + "/dev").c_str(), 0700), 0);
    ASSERT_EQ(mkdir((here.path() + "/dev/mapper").c_str(), 0700), 0);
    here.addFile("dev/mapper/a", "");
    const std::string device = here.path() + "/dev/mapper/a1";
    EXPECT_EQ(ask({"is-partition", device}).output, "no " + device + "\n");
    directory.file(here.path().substr(1) + "/dev/mapper/a", "");
    EXPECT_EQ(ask({"is-partition", device}).output, "yes " + device + "\n");
}

TEST_F(Sysroot, ARecordedFailureIsAFailureAndMakesTheAnswerUnsure)
{
    record("output", "");
    record("errors", "no locking\n");
    record("status", "5\n");
    const Ended ended = ask({"explain", "/dev/mapper/vg00-lvol1"});
    EXPECT_THAT(ended.output,
                AllOf(HasSubstr("Claimed by device-mapper, level 16: the listing of logical volumes failed, so a "
                                "volume would be claimed too.\n"),
                      HasSubstr("lvdisplay command execution failed. Status:[5]"),
                      HasSubstr("The command [/sbin/lvdisplay] ended with exit code 5: no locking")));
    EXPECT_THAT(ended.errors, StartsWith("kivclaim: the answer about /dev/mapper/vg00-lvol1 is unsure, because "
                                         "/sbin/lvdisplay exited with status 5: no locking\n"));
    EXPECT_EQ(ended.status, 3);
}

TEST_F(Sysroot, ARecordedSignalIsASignal)
{
    record("status", "signal 9");
    EXPECT_THAT(ask({"explain", "/dev/mapper/mpatha"}).output,
                AllOf(HasSubstr("The command [/sbin/lvdisplay] was ended by signal 9 (Killed)"),
                      HasSubstr("killed by signal [9]")));
}

TEST_F(Sysroot, ExplainSaysThatItsAnswerIsUnsure)
{
    forgetCommands();
    EXPECT_THAT(ask({"explain", "/dev/mapper/mpatha"}).errors,
                StartsWith("kivclaim: the answer about /dev/mapper/mpatha is unsure, because no outcome of"));
}

TEST_F(Sysroot, AuditComparesWithTheRecordedKernel)
{
    const Ended ended = ask({"audit"});
    EXPECT_EQ(ended.output,
              "DEVICE                   QUESTION LIBRARY                                          "
              "KERNEL                                VERDICT QUIRK         REASON\n"
              "/dev/mapper/mpatha       all      device-mapper                                    "
              "multipath map                         agrees                \n"
              "/dev/mapper/mpatha-part1 all      device-mapper, partition 1 of /dev/mapper/mpatha "
              "partition 1 of /dev/mapper/mpatha     agrees                \n"
              "/dev/mapper/vg00-lvol1   all      none                                             "
              "logical volume                        agrees                \n"
              "/dev/sda                 all      native                                           "
              "SCSI disk                             agrees                \n"
              "/dev/sda1                all      native, partition 1 of /dev/sda                  "
              "partition 1 of /dev/sda               agrees                \n"
              "/dev/sdb                 claim    native                                           "
              "SCSI disk, path of /dev/mapper/mpatha quirk   path-of-a-map the name is a disk's; that "
              "/dev/mapper/mpatha uses it does not count\n"
              "6 devices: 5 agree, 1 differs by known quirks (see docs/quirks.md), 0 differ otherwise\n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(Sysroot, AuditMarksUnsureAnswersAndSaysWhy)
{
    forgetCommands();
    const Ended table = ask({"audit", "/dev/mapper/vg00-lvol1", "/dev/mapper/mpatha", "/dev/sda"});
    EXPECT_THAT(table.output, AllOf(HasSubstr("quirk, unsure  failed-listing /sbin/lvdisplay failed"),
                                    HasSubstr("multipath map  agrees, unsure"), HasSubstr("SCSI disk      agrees  ")));
    const std::string reason = "no outcome of /sbin/lvdisplay was recorded in " + path(commandPlace) + "output";
    EXPECT_EQ(table.errors, "kivclaim: the answers about 2 devices are unsure, because " + reason + "\n");
    EXPECT_EQ(table.status, 3);
    EXPECT_THAT(ask({"audit", "--json", "/dev/mapper/mpatha"}).output, HasSubstr("\"unsure\": \"" + reason + "\""));
    EXPECT_THAT(ask({"audit", "--json", "/dev/sda"}).output, Not(HasSubstr("\"unsure\": \"")));
}

TEST_F(Sysroot, AuditIsUnsureOfADeviceWhoseFilesAreWrong)
{
    directory.attribute("sda", "dev", "8:many\n");
    EXPECT_THAT(ask({"audit", "/dev/sda"}).errors,
                HasSubstr("unsure, because what was recorded of the device is incomplete or wrong"));
}

TEST_F(Sysroot, AuditExpectsWhatTheRecordedReleaseDecides)
{
    release("2.6.32\n");
    EXPECT_THAT(ask({"audit", "/dev/mapper/mpatha"}).output,
                HasSubstr("/dev/mapper/mpatha_part1 /dev/mapper/mpatha-part1 quirk   release-decides"));
}

TEST_F(Sysroot, AModuleOfTheUsersIsAskedAboutTheRecordedMachine)
{
    EXPECT_EQ(ask({"--module", CLAIMS_TOO_MUCH, "claim", "/dev/sda"}).output, "32 CClaimsTooMuch /dev/sda\n");
}

TEST_F(Sysroot, ADirectoryWithoutSysIsRefused)
{
    directory.remove("sys");
    for (const char* const command : {"claim", "explain", "audit"}) {
        expectRefused(ask({command, "/dev/sda"}), "cannot read sys/class/block (No such file or directory) below " +
                                                      folder.path() +
                                                      "; --sysroot takes a directory laid out as for lsblk --sysroot");
    }
}

TEST_F(Sysroot, WhatIsNoDirectoryIsRefused)
{
    directory.link("/links/circle", "circle");
    for (const auto& [name, reason] : {std::pair("none", "No such file or directory"),
                                       std::pair("links/circle", "Too many levels of symbolic links")}) {
        const Ended ended = tests::Process(KIVCLAIM_COMMAND, {"claim", "/dev/sda", "--sysroot", path(name)}).run();
        expectRefused(ended, "cannot open the directory " + path(name) + ": " + reason +
                                 "; --sysroot takes a directory laid out as for lsblk --sysroot");
    }
    EXPECT_THAT(tests::Process(KIVCLAIM_COMMAND, {"claim", "/dev/sda", "--sysroot", ""}).run().errors,
                HasSubstr("--sysroot: names no directory"));
}

TEST_F(Sysroot, AnInvalidRecordedStatusIsRefused)
{
    for (const std::string text : {"", "ok", "256", "-1", "0x5", "5 ", "0\n0", "signal", "signal 0", "signal 128"}) {
        record("status", text);
        const Ended ended = ask({"claim", "/dev/sda"});
        EXPECT_EQ(ended.output, "") << text;
        EXPECT_THAT(ended.errors, AllOf(StartsWith("kivclaim: '" + path(commandPlace) + "status' says '"),
                                        HasSubstr("; write an exit status from 0 to 255, or signal and a number")));
        EXPECT_EQ(ended.status, 2) << text;
    }
}

TEST_F(Sysroot, ARecordedFileThatCannotBeReadIsRefused)
{
    directory.remove(std::string(commandPlace) + "output");
    ASSERT_EQ(mkfifo(path(std::string(commandPlace) + "output").c_str(), 0600), 0);
    expectRefused(ask({"claim", "/dev/sda"}), "cannot read '" + path(commandPlace) + "output': it is no regular file");
}

TEST_F(Sysroot, TheActivePathIsOfThisMachineOnly)
{
    expectRefused(ask({"active-path", "/dev/sda"}),
                  "active-path asks the volume manager of this machine; leave out --sysroot");
}

TEST_F(Sysroot, LinksThatLeaveTheDirectoryLeadNowhere)
{
    const tests::TemporaryFolder outside;
    outside.addFile("osrelease", "2.6.32\n");
    outside.addFile("output", volumes);
    directory.remove("proc/sys/kernel/osrelease").remove(std::string(commandPlace) + "output");
    directory.link("/proc/sys/kernel/osrelease", outside.path() + "/osrelease");
    directory.link("/" + std::string(commandPlace) + "output", "../../../../../../.." + outside.path() + "/output");
    directory.link("/dev/mapper/outside", outside.path() + "/output");
    EXPECT_EQ(ask({"partition", "/dev/mapper/mpatha", "3"}).output, "/dev/mapper/mpatha\n");
    EXPECT_EQ(ask({"claim", "/dev/mapper/vg00-lvol1"}).output, "16 device-mapper /dev/mapper/vg00-lvol1\n");
    EXPECT_EQ(ask({"is-partition", "/dev/mapper/outside1"}).output, "no /dev/mapper/outside1\n");
}

TEST_F(Sysroot, NothingOutsideTheDirectoryIsOpened)
{
    for (const std::vector<std::string>& question : {std::vector<std::string>{"claim", "/dev/mapper/mpatha"},
                                                     {"is-partition", "/dev/mapper/mpatha-part12"},
                                                     {"partition", "/dev/mapper/mpatha", "1"},
                                                     {"whole", "/dev/mapper/mpatha-part1"},
                                                     {"explain", "/dev/mapper/vg00-lvol1"},
                                                     {"audit"}}) {
        // On standard error, which has nothing else to say.
        std::istringstream opened(process(question)
                                      .environment("LD_PRELOAD", KIVCLAIM_OPENED_PATHS_LIBRARY)
                                      .environment("KIVCLAIM_OPENED_PATHS", "2")
                                      .run()
                                      .errors);
        std::size_t inside = 0;
        for (std::string line; std::getline(opened, line);) {
            const bool isInside = line.rfind(folder.path(), 0) == 0;
            EXPECT_TRUE(isInside || line.front() != '/') << question.front() << " opens " << line;
            inside += isInside ? 1 : 0;
        }
        EXPECT_GT(inside, 0U) << question.front();
    }
}
