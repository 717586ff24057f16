// `kivclaim audit` on machines that umockdev plays: what it says where the library and the kernel differ, and why.
#include "tests/mock_machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using tests::Ended;

namespace {

class Audit : public testing::Test {
protected:
    Audit() { listings({""}); }

    // What the tool that lists logical volumes prints, run by run; the last listing again for every further run.
    void listings(const std::vector<std::string>& texts)
    {
        tools.addFile("runs", "");
        for (std::size_t run = 0; run < texts.size(); ++run) {
            tools.addFile("listing." + std::to_string(run), texts[run]);
        }
        tools.addScript("lvdisplay",
                        "read -r n 2>/dev/null </usr/sbin/runs || n=0\n/bin/cat /usr/sbin/listing.$n\n"
                        "[ ! -e /usr/sbin/listing.$((n + 1)) ] || echo $((n + 1)) >/usr/sbin/runs\n");
    }
    void failingListing() { tools.addScript("lvdisplay", "echo 'no locking' >&2\nexit 5\n"); }

    static std::string volume(const std::string& group, const std::string& name)
    {
        return "  --- Logical volume ---\n  LV Path                /dev/" + group + "/" + name +
               "\n  LV Name                " + name + "\n  VG Name                " + group + "\n   \n";
    }

    Ended audit(std::vector<std::string> arguments = {}, const std::string& input = "")
    {
        arguments.insert(arguments.begin(), "audit");
        return machine.process(KIVCLAIM_COMMAND, std::move(arguments))
            .environment("LC_ALL", "C")
            .sees(tools.path(), "/usr/sbin")
            .reads(input)
            .run();
    }

    // The lines about differences, blanks collapsed, without the summary.
    std::vector<std::string> differences(const std::vector<std::string>& paths = {}, const std::string& input = "")
    {
        std::vector<std::string> arguments = {"--only-differences", "--no-fold"};
        arguments.insert(arguments.end(), paths.begin(), paths.end());
        return differencesIn(audit(arguments, input), "", 0);
    }

    static std::vector<std::string> differencesIn(const Ended& ended, const std::string& errors, int status)
    {
        EXPECT_EQ(ended.errors, errors);
        EXPECT_EQ(ended.status, status);
        std::vector<std::string> lines;
        std::string line;
        for (const char character : ended.output) {
            if (character == '\n') {
                lines.push_back(line);
                line.clear();
            } else if (character != ' ' || (!line.empty() && line.back() != ' ')) {
                line += character;
            }
        }
        EXPECT_FALSE(lines.empty());
        lines.pop_back();
        if (!lines.empty()) {
            lines.erase(lines.begin());
        }
        return lines;
    }

    tests::MockMachine machine;
    tests::TemporaryFolder tools;
};

using Lines = std::vector<std::string>;

}  // namespace

TEST_F(Audit, ShowsWhatTheLibraryAndTheKernelAgreeOn)
{
    listings({volume("vg00", "lvol1")});
    machine.disk("xvda").partition("xvda", "xvda1", 1);
    machine.disk("sda").partition("sda", "sda12", 12);
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-1", "mpatha-part1", "part1-mpath-36001", {"dm-0"});
    machine.mapped("dm-2", "vg00-lvol1", "LVM-AbCd");
    const Ended ended = audit();
    EXPECT_EQ(ended.output,
              "DEVICE                   QUESTION LIBRARY                                          "
              "KERNEL                            VERDICT QUIRK REASON\n"
              "/dev/mapper/mpatha       all      device-mapper                                    "
              "multipath map                     agrees        \n"
              "/dev/mapper/mpatha-part1 all      device-mapper, partition 1 of /dev/mapper/mpatha "
              "partition 1 of /dev/mapper/mpatha agrees        \n"
              "/dev/mapper/vg00-lvol1   all      none                                             "
              "logical volume                    agrees        \n"
              "/dev/sda                 all      native                                           "
              "SCSI disk                         agrees        \n"
              "/dev/sda12               all      native, partition 12 of /dev/sda                 "
              "partition 12 of /dev/sda          agrees        \n"
              "/dev/xvda                all      none                                             "
              "block device of no stack          agrees        \n"
              "/dev/xvda1               all      none                                             "
              "partition 1 of /dev/xvda          agrees        \n"
              "7 devices: 7 agree, 0 differ by known quirks (see docs/quirks.md), 0 differ otherwise\n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(Audit, PowerPathDevicesAgree)
{
    machine.disk("emcpowera").partition("emcpowera", "emcpowera3", 3);
    EXPECT_THAT(audit().output, HasSubstr("\n2 devices: 2 agree, "));
}

TEST_F(Audit, AVolumeWithADashIsClaimed)
{
    listings({volume("vg-a", "lv1")});
    machine.mapped("dm-0", "vg--a-lv1", "LVM-AbCd");
    EXPECT_EQ(differences(), Lines{"/dev/mapper/vg--a-lv1 claim device-mapper logical volume quirk dashed-volume "
                                   "the list of volumes has it as /dev/mapper/vg-a-lv1"});
    listings({volume("vg--a", "lv--1")});
    machine.mapped("dm-0", "vg----a-lv----1", "LVM-AbCd");
    EXPECT_EQ(differences(), Lines{"/dev/mapper/vg----a-lv----1 claim device-mapper logical volume quirk dashed-volume "
                                   "the list of volumes has it as /dev/mapper/vg--a-lv--1"});
}

TEST_F(Audit, AMapThatIsNamedLikeAVolumeWithADashInTheListIsRefused)
{
    listings({volume("vg-a", "lv1")});
    machine.mapped("dm-0", "vg-a-lv1", "mpath-36001");
    EXPECT_EQ(differences(), Lines{"/dev/mapper/vg-a-lv1 claim none multipath map quirk dashed-volume "
                                   "the list has a volume under this name"});
    listings({"  LV Name                /dev/vg-a/lv1\n  VG Name                vg-a\n"});
    EXPECT_EQ(differences().size(), 1);
}

TEST_F(Audit, AVolumeIsClaimedWhenTheListingFails)
{
    failingListing();
    machine.mapped("dm-0", "vg00-lvol1", "LVM-AbCd").mapped("dm-1", "mpatha", "mpath-36001");
    const Ended ended = audit();
    EXPECT_EQ(differencesIn(ended,
                            "kivclaim: the answers about 2 devices are unsure, because /sbin/lvdisplay exited with "
                            "status 5: no locking; run /sbin/lvdisplay by hand to see what is wrong\n",
                            3),
              (Lines{"/dev/mapper/mpatha all device-mapper multipath map agrees, unsure ",
                     "/dev/mapper/vg00-lvol1 claim device-mapper logical volume quirk, unsure failed-listing "
                     "/sbin/lvdisplay failed, so no volume is known as one"}));
    EXPECT_THAT(ended.output, HasSubstr("0 differ otherwise; the answers about 2 are unsure\n"));
    EXPECT_THAT(audit({"--json"}).output,
                AllOf(HasSubstr("\"unsure\": 2"), HasSubstr("\"unsure\": \"/sbin/lvdisplay exited with status 5: no "
                                                            "locking; run /sbin/lvdisplay by hand")));
}

TEST_F(Audit, AVolumeIsClaimedWithoutTheToolThatListsIt)
{
    ASSERT_EQ(unlink((tools.path() + "/lvdisplay").c_str()), 0);
    machine.mapped("dm-0", "vg00-lvol1", "LVM-AbCd");
    EXPECT_EQ(differencesIn(audit(),
                            "kivclaim: the answers about 1 device are unsure, because /sbin/lvdisplay could not be "
                            "run: it cannot be started (No such file or directory); install lvm2\n",
                            3),
              Lines{"/dev/mapper/vg00-lvol1 claim device-mapper logical volume quirk, unsure failed-listing "
                    "/sbin/lvdisplay failed, so no volume is known as one"});
    const Ended silent = audit({"--no-warn"});
    EXPECT_EQ(silent.errors, "");
    EXPECT_EQ(silent.status, 3);
}

TEST_F(Audit, WithoutLvmNothingIsUnsure)
{
    ASSERT_EQ(unlink((tools.path() + "/lvdisplay").c_str()), 0);
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    const Ended ended = audit();
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(Audit, AVolumeThatWasCreatedAfterTheListingIsClaimed)
{
    listings({volume("vg00", "lvol1"), volume("vg00", "lvol1") + volume("vg00", "lvol2")});
    machine.mapped("dm-0", "vg00-lvol1", "LVM-AbCd").mapped("dm-1", "vg00-lvol2", "LVM-AbCe");
    EXPECT_EQ(differences({"-"}, "/dev/mapper/vg00-lvol1\n/dev/mapper/vg00-lvol2\n"),
              Lines{"/dev/mapper/vg00-lvol2 claim device-mapper logical volume quirk stale-list "
                    "the list of volumes was read before this one was created"});
}

TEST_F(Audit, AMapThatHasTheNameOfAVolumeRemovedSinceIsRefused)
{
    listings({volume("vg00", "lvol1"), volume("vg00", "lvol2")});
    machine.mapped("dm-0", "vg00-lvol1", "mpath-36001");
    EXPECT_EQ(differences(), Lines{"/dev/mapper/vg00-lvol1 claim none multipath map quirk stale-list "
                                   "the list was read while this was the name of a volume"});
}

TEST_F(Audit, AVolumeThatIsNotPrintedIsClaimed)
{
    listings({volume("vg00", "thin")});
    machine.mapped("dm-0", "vg00-pool_tdata", "LVM-AbCd").mapped("dm-1", "vg00-thin", "LVM-AbCe");
    EXPECT_EQ(differences(), Lines{"/dev/mapper/vg00-pool_tdata claim device-mapper logical volume quirk "
                                   "unlisted-volume /sbin/lvdisplay does not print this volume"});
}

TEST_F(Audit, AnyOtherMappingIsClaimed)
{
    machine.mapped("dm-0", "secret", "CRYPT-LUKS2-1234-secret").mapped("dm-1", "zero", "");
    machine.mapped("dm-3", "loose1", "part1-LVM-AbCd", {"dm-1"});
    EXPECT_EQ(differences(), (Lines{"/dev/mapper/loose1 claim device-mapper partition 1 of /dev/mapper/zero quirk "
                                    "any-mapping whatever is under /dev/mapper/ and no logical volume is claimed",
                                    "/dev/mapper/loose1 is-partition no yes quirk name-decides "
                                    "neither /dev/mapper/loose nor /dev/mapper/loos can be opened",
                                    "/dev/mapper/secret claim device-mapper device-mapper device, CRYPT quirk "
                                    "any-mapping whatever is under /dev/mapper/ and no logical volume is claimed",
                                    "/dev/mapper/zero claim device-mapper device-mapper device, without uuid quirk "
                                    "any-mapping whatever is under /dev/mapper/ and no logical volume is claimed",
                                    "/dev/mapper/zero partition 1 /dev/mapper/zero-part1 /dev/mapper/loose1 quirk "
                                    "release-decides the kernel's release decides on the name, here -part1, not the "
                                    "nodes"}));
}

TEST_F(Audit, APathOfAMapIsClaimedAsNative)
{
    machine.disk("sda").partition("sda", "sda1", 1);
    machine.mapped("dm-0", "mpatha", "mpath-36001", {"sda"});
    EXPECT_EQ(differences(),
              (Lines{"/dev/sda claim native SCSI disk, path of /dev/mapper/mpatha quirk path-of-a-map "
                     "the name is a disk's; that /dev/mapper/mpatha uses it does not count",
                     "/dev/sda1 claim native partition 1 of /dev/sda, path of /dev/mapper/mpatha quirk path-of-a-map "
                     "the name is a disk's; that /dev/mapper/mpatha uses it does not count"}));
}

TEST_F(Audit, ThePathsOfAMapAreFoldedIntoOneRow)
{
    machine.disk("sda").partition("sda", "sda1", 1).disk("sdb").disk("sdc");
    machine.mapped("dm-0", "mpatha", "mpath-36001", {"sda", "sdb"}).mapped("dm-1", "mpathb", "mpath-36002", {"sdc"});
    const Ended folded = audit({"-d"});
    EXPECT_EQ(differencesIn(folded, "", 0),
              (Lines{"/dev/sda and 2 more claim native paths of /dev/mapper/mpatha quirk path-of-a-map "
                     "the names are disks'; that /dev/mapper/mpatha uses them does not count",
                     "/dev/sdc claim native SCSI disk, path of /dev/mapper/mpathb quirk path-of-a-map "
                     "the name is a disk's; that /dev/mapper/mpathb uses it does not count"}));
    EXPECT_THAT(folded.output, HasSubstr("\n6 devices: 2 agree, 4 differ by known quirks ")) << "all are counted";
    EXPECT_EQ(differencesIn(audit({"-d", "--no-fold"}), "", 0).size(), 4U);
}

TEST_F(Audit, ShowsOrLeavesOutTheDifferencesOfAQuirk)
{
    machine.disk("sda").mapped("dm-0", "mpatha", "mpath-36001", {"sda"}).mapped("dm-1", "zero", "");
    const std::string path =
        "/dev/sda claim native SCSI disk, path of /dev/mapper/mpatha quirk path-of-a-map "
        "the name is a disk's; that /dev/mapper/mpatha uses it does not count";
    const std::string mapping =
        "/dev/mapper/zero claim device-mapper device-mapper device, without uuid quirk "
        "any-mapping whatever is under /dev/mapper/ and no logical volume is claimed";
    EXPECT_EQ(differencesIn(audit({"--quirk", "path-of-a-map"}), "", 0), Lines{path});
    EXPECT_EQ(differencesIn(audit({"-d", "--no-quirk", "path-of-a-map"}), "", 0), Lines{mapping});
    EXPECT_EQ(differencesIn(audit({"-d", "--quirk", "path-of-a-map", "--quirk", "any-mapping"}), "", 0),
              (Lines{mapping, path}));
    const std::string json = audit({"--json", "--quirk", "any-mapping"}).output;
    EXPECT_THAT(json, AllOf(HasSubstr("any-mapping"), Not(HasSubstr("path-of-a-map")), Not(HasSubstr("mpatha\""))));
    EXPECT_THAT(json, HasSubstr("\"quirks\": 2")) << "the summary is about all differences";
    const Ended wrong = audit({"--quirk", "path"});
    EXPECT_THAT(wrong.errors, HasSubstr("kivclaim: 'path' is no quirk of an answer; the quirks are prefix-anywhere, "));
    EXPECT_EQ(wrong.status, 2);
}

TEST_F(Audit, ADiskUnderAVolumeIsStillADisk)
{
    listings({volume("vg00", "lvol1")});
    machine.disk("sda").mapped("dm-0", "vg00-lvol1", "LVM-AbCd", {"sda"});
    EXPECT_EQ(differences(), Lines{});
}

TEST_F(Audit, ATwoDigitPartitionComesBackWithItsLastDigit)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-1", "mpatha-part1", "part1-mpath-36001", {"dm-0"});
    machine.mapped("dm-12", "mpatha-part12", "part12-mpath-36001", {"dm-0"});
    EXPECT_EQ(differences(), Lines{"/dev/mapper/mpatha-part12 whole /dev/mapper/mpatha- 2 /dev/mapper/mpatha 12 quirk "
                                   "last-digit six characters are cut and the last one is the number"});
}

TEST_F(Audit, TheTenthPartitionComesBackWithZero)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-1", "mpatha-part1", "part1-mpath-36001", {"dm-0"});
    machine.mapped("dm-10", "mpatha-part10", "part10-mpath-36001", {"dm-0"});
    EXPECT_EQ(differences(), Lines{"/dev/mapper/mpatha-part10 whole /dev/mapper/mpatha- 0 /dev/mapper/mpatha 10 quirk "
                                   "last-digit six characters are cut and the last one is the number"});
}

TEST_F(Audit, ATwoDigitPartitionWithoutItsNeighbourIsNotRecognised)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-12", "mpatha-part12", "part12-mpath-36001", {"dm-0"});
    EXPECT_EQ(differences(), Lines{"/dev/mapper/mpatha-part12 is-partition no yes quirk missing-neighbour "
                                   "neither /dev/mapper/mpatha-part1 nor /dev/mapper/mpatha-part can be opened"});
}

TEST_F(Audit, AMapThatIsNamedLikeAPartitionIsTakenForOne)
{
    machine.mapped("dm-0", "data-part1", "mpath-36001");
    machine.mapped("dm-1", "mpath", "mpath-36002").mapped("dm-2", "mpath1", "mpath-36003");
    EXPECT_EQ(differences(), (Lines{"/dev/mapper/data-part1 is-partition yes no quirk partition-like-name "
                                    "the name ends like a partition's",
                                    "/dev/mapper/mpath1 is-partition yes no quirk partition-like-name "
                                    "it ends in a digit, and /dev/mapper/mpath exists"}));
}

TEST_F(Audit, PartitionsUnderNamesOfAnotherKernelAreNotProposed)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-1", "mpatha_part1", "part1-mpath-36001", {"dm-0"});
    EXPECT_EQ(differences(), Lines{"/dev/mapper/mpatha partition 1 /dev/mapper/mpatha-part1 /dev/mapper/mpatha_part1 "
                                   "quirk release-decides the kernel's release decides on the name, here -part1, "
                                   "not the nodes"});
}

TEST_F(Audit, PartitionsThatAreNotNamedPartAreCutTooFar)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-1", "mpatha1", "part1-mpath-36001", {"dm-0"});
    EXPECT_EQ(differences(), (Lines{"/dev/mapper/mpatha partition 1 /dev/mapper/mpatha-part1 /dev/mapper/mpatha1 "
                                    "quirk release-decides the kernel's release decides on the name, here -part1, "
                                    "not the nodes",
                                    "/dev/mapper/mpatha1 whole /dev/mapper/m 1 /dev/mapper/mpatha 1 quirk "
                                    "six-characters six characters are cut, the length of -part and a digit"}));
}

TEST_F(Audit, AnotherNameForTheSamePartitionAgrees)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-1", "mpatha_part1", "part1-mpath-36001", {"dm-0"}).node("mapper/mpatha-part1", "dm-1");
    EXPECT_EQ(differences(), Lines{});
}

TEST_F(Audit, TheProposedNodeMayBeAnotherDevices)
{
    machine.disk("xvda").mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-1", "mpatha_part1", "part1-mpath-36001", {"dm-0"}).node("mapper/mpatha-part1", "xvda");
    EXPECT_EQ(differences(), Lines{"/dev/mapper/mpatha partition 1 /dev/mapper/mpatha-part1 /dev/mapper/mpatha_part1 "
                                   "quirk release-decides the kernel's release decides on the name, here -part1, "
                                   "not the nodes"});
}

TEST_F(Audit, APartitionThatWasRenamedByHandIsNotRecognised)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001").mapped("dm-1", "boot", "part3-mpath-36001", {"dm-0"});
    EXPECT_EQ(differences({"/dev/mapper/boot"}),
              Lines{"/dev/mapper/boot is-partition no yes quirk name-decides the name does not end in a number, so it "
                    "is no partition's"});
}

TEST_F(Audit, APartitionThatHasTheNameOfAnotherComesBackWithItsNumber)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001").mapped("dm-1", "mpatha-part1", "part3-mpath-36001", {"dm-0"});
    EXPECT_EQ(differences({"/dev/mapper/mpatha-part1"}),
              Lines{"/dev/mapper/mpatha-part1 whole /dev/mapper/mpatha 1 /dev/mapper/mpatha 3 quirk name-decides the "
                    "number in the name is not the partition's"});
}

TEST_F(Audit, ANameIsClaimedWithoutADevice)
{
    const Ended ended = audit({"-d", "/dev/mapper/gone-part1", "/dev/emcpowerzz", "/dev/nothing"});
    EXPECT_EQ(differencesIn(ended,
                            "kivclaim: /dev/mapper/gone-part1: no such device; the name alone decides\n"
                            "kivclaim: /dev/emcpowerzz: no such device; the name alone decides\n"
                            "kivclaim: /dev/nothing: no such device; the name alone decides\n",
                            0),
              (Lines{"/dev/mapper/gone-part1 claim device-mapper no such device quirk name-decides "
                     "the name is enough, nothing needs to be there",
                     "/dev/emcpowerzz claim powerpath no such device quirk name-decides "
                     "the name is enough, nothing needs to be there"}));
}

TEST_F(Audit, ADeviceIsKnownByOneNameOnly)
{
    machine.disk("sda").node("emcpowera", "sda");
    machine.mappedWithoutName("dm-0", "mpatha", "mpath-36001");
    EXPECT_EQ(differences({"/dev/dm-0", "/dev/emcpowera"}),
              (Lines{"/dev/dm-0 claim none multipath map, /dev/mapper/mpatha quirk name-decides the name decides; "
                     "the node's device, 240:1, is the kernel's /dev/mapper/mpatha",
                     "/dev/emcpowera claim powerpath SCSI disk, /dev/sda quirk name-decides the name decides; "
                     "the node's device, 240:0, is the kernel's /dev/sda"}));
}

TEST_F(Audit, ANodeMayBeAnotherDevices)
{
    machine.disk("xvda").mappedWithoutName("dm-0", "mpatha", "mpath-36001").node("mapper/mpatha", "xvda");
    EXPECT_EQ(differences(), Lines{"/dev/mapper/mpatha number 240:0 240:1 quirk name-decides "
                                   "the node that has this name is another device's"});
}

TEST_F(Audit, APrefixCountsAnywhere)
{
    EXPECT_EQ(differences({"--no-warn", "/srv/dev/sda"}),
              Lines{"/srv/dev/sda claim native no such device quirk prefix-anywhere "
                    "'/dev/sd' counts anywhere in a path"});
}

TEST_F(Audit, EndsWithTheNumbersOfDevicesAndDifferences)
{
    machine.disk("xvda").mapped("dm-0", "zero", "");
    EXPECT_THAT(audit().output, HasSubstr("\n2 devices: 1 agrees, 1 differs by known quirks (see docs/quirks.md), "
                                          "0 differ otherwise\n"));
    EXPECT_EQ(audit({"--only-differences", "/dev/xvda"}).output,
              "1 device: 1 agrees, 0 differ by known quirks (see docs/quirks.md), 0 differ otherwise\n");
}

TEST_F(Audit, OnAnOlderReleasePartitionsOfTheNewerNamesAreNotProposed)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-1", "mpatha-part1", "part1-mpath-36001", {"dm-0"});
    const Ended ended = machine.process(KIVCLAIM_COMMAND, {"audit", "--only-differences"})
                            .environment("LC_ALL", "C")
                            .environment("LD_PRELOAD", KIVCLAIM_TOLD_RELEASE)
                            .environment("KIVCLAIM_KERNEL_RELEASE", "2.6.32")
                            .sees(tools.path(), "/usr/sbin")
                            .run();
    EXPECT_THAT(ended.output, HasSubstr("/dev/mapper/mpatha partition 1 /dev/mapper/mpatha_part1 "
                                        "/dev/mapper/mpatha-part1 quirk   release-decides"));
    EXPECT_EQ(ended.status, 0);
}

TEST_F(Audit, APathOfAMapThatNoStackServesAgrees)
{
    machine.disk("nvme0n1").partition("nvme0n1", "nvme0n1p1", 1);
    machine.mapped("dm-0", "mpatha", "mpath-nvme.1", {"nvme0n1"});
    EXPECT_EQ(differences(), Lines{});
    EXPECT_THAT(audit({"--json", "/dev/nvme0n1"}).output,
                HasSubstr("\"is\": \"block device of no stack, path of /dev/mapper/mpatha\""));
}

TEST_F(Audit, AnotherFileIsNoBlockDevice)
{
    EXPECT_THAT(audit({"--json", "/dev/null"}).output, HasSubstr("\"is\": \"no block device\""));
}

// kpartx lays logical partitions on the extended one.
TEST_F(Audit, ALogicalPartitionBelongsToTheMap)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-2", "mpatha-part2", "part2-mpath-36001", {"dm-0"});
    machine.mapped("dm-5", "mpatha-part5", "part5-mpath-36001", {"dm-2"});
    machine.mapped("dm-6", "mpatha-part6", "part6-mpath-36001", {"dm-2"});
    EXPECT_EQ(differences(), Lines{});
    const std::string output = audit({"--json", "/dev/mapper/mpatha"}).output;
    EXPECT_THAT(output, ContainsRegex("mpatha-part2\".*mpatha-part5\".*mpatha-part6\".*\"is\""));
    EXPECT_THAT(output, ContainsRegex("\"is\".*mpatha-part2\".*mpatha-part5\".*mpatha-part6\""));
}

TEST_F(Audit, APartitionInsideAPartitionBelongsToThatPartition)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-1", "mpatha-part1", "part1-mpath-36001", {"dm-0"});
    machine.mapped("dm-2", "mpatha-part1-part3", "part3-part1-mpath-36001", {"dm-1"});
    const std::string output = audit({"--json", "/dev/mapper/mpatha-part1-part3"}).output;
    EXPECT_THAT(output, HasSubstr("\"is\": \"partition 3 of /dev/mapper/mpatha-part1\""));
    EXPECT_THAT(audit({"--json", "/dev/mapper/mpatha"}).output, Not(HasSubstr("part3")));
}

TEST_F(Audit, TheNameOfADiskMayHaveASlash)
{
    machine.disk("cciss!c0d0").partition("cciss!c0d0", "cciss!c0d0p1", 1);
    machine.mapped("dm-0", "mpatha", "mpath-36001", {"cciss!c0d0"});
    machine.mapped("dm-1", "c0d0p2", "part2-DISK-1", {"cciss!c0d0"});
    const std::string output = audit({"--json"}).output;
    EXPECT_THAT(output, AllOf(HasSubstr("\"path\": \"/dev/cciss/c0d0p1\""),
                              HasSubstr("\"is\": \"partition 1 of /dev/cciss/c0d0, path of /dev/mapper/mpatha\""),
                              HasSubstr("\"is\": \"partition 2 of /dev/cciss/c0d0\"")));
    EXPECT_THAT(output, HasSubstr("\"number\": 1,\n                  \"path\": \"/dev/cciss/c0d0p1\""));
}

// The tool that lists volumes runs between the kernel's account and the library's answer about the map. One that agrees
// stays among those that agree.
TEST_F(Audit, ADeviceThatVanishesMeanwhileIsLeftOutWhereItWouldDiffer)
{
    tools.addScript("lvdisplay", "cd \"$UMOCKDEV_DIR/sys/devices/virtual/block\"\n/bin/rm -r dm-0 xvda\n");
    machine.disk("vda").disk("xvda").mapped("dm-0", "zero", "");
    EXPECT_EQ(audit({"--only-differences"}).output,
              "2 devices: 2 agree, 0 differ by known quirks (see docs/quirks.md), 0 differ otherwise\n");
}

TEST_F(Audit, PrintsJson)
{
    machine.mapped("dm-0", "mpatha", "mpath-36001");
    machine.mapped("dm-1", "mpatha_part1", "part1-mpath-36001", {"dm-0"});
    const Ended ended = audit({"--json"});
    EXPECT_EQ(ended.output, R"({
   "devices": [
      {
         "device": "/dev/mapper/mpatha",
         "verdict": "quirk",
         "library": {
            "claimed": true,
            "level": 16,
            "stack": "device-mapper",
            "partition": null,
            "whole": null,
            "partitions": [
               {
                  "number": 1,
                  "path": "/dev/mapper/mpatha-part1"
               }
            ]
         },
         "kernel": {
            "exists": true,
            "is": "multipath map",
            "stack": "device-mapper",
            "path": "/dev/mapper/mpatha",
            "number": "240:0",
            "uuid": "mpath-36001",
            "map": null,
            "partition": null,
            "whole": null,
            "partitions": [
               {
                  "number": 1,
                  "path": "/dev/mapper/mpatha_part1"
               }
            ]
         },
         "differences": [
            {
               "question": "partition",
               "partition": 1,
               "library": "/dev/mapper/mpatha-part1",
               "kernel": "/dev/mapper/mpatha_part1",
               "verdict": "quirk",
               "quirk": "release-decides",
               "reason": "the kernel's release decides on the name, here -part1, not the nodes"
            }
         ]
      },
      {
         "device": "/dev/mapper/mpatha_part1",
         "verdict": "agrees",
         "library": {
            "claimed": true,
            "level": 16,
            "stack": "device-mapper",
            "partition": 1,
            "whole": "/dev/mapper/mpatha",
            "partitions": []
         },
         "kernel": {
            "exists": true,
            "is": "partition 1 of /dev/mapper/mpatha",
            "stack": "device-mapper",
            "path": "/dev/mapper/mpatha_part1",
            "number": "240:1",
            "uuid": "part1-mpath-36001",
            "map": null,
            "partition": 1,
            "whole": "/dev/mapper/mpatha",
            "partitions": []
         },
         "differences": []
      }
   ],
   "summary": {
      "devices": 2,
      "agree": 1,
      "quirks": 1,
      "unknown": 0,
      "unsure": 0
   }
}
)");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(audit({"--json", "--only-differences", "/dev/mapper/mpatha_part1"}).output,
              "{\n   \"devices\": [],\n   \"summary\": {\n      \"devices\": 1,\n      \"agree\": 1,\n"
              "      \"quirks\": 0,\n      \"unknown\": 0,\n      \"unsure\": 0\n   }\n}\n");
}

// A machine without any quirk, and another module that claims all of it.
TEST_F(Audit, AModuleThatClaimsTooMuchDiffersByNoKnownQuirk)
{
    machine.disk("sda").partition("sda", "sda1", 1);
    EXPECT_EQ(audit().status, 0);
    const Ended ended = audit({"--module", CLAIMS_TOO_MUCH});
    EXPECT_EQ(
        ended.output,
        "DEVICE    QUESTION     LIBRARY        KERNEL                  VERDICT QUIRK REASON\n"
        "/dev/sda  claim        CClaimsTooMuch SCSI disk               differs       no known quirk explains this\n"
        "/dev/sda  partition 1  /dev/sda#1     /dev/sda1               differs       no known quirk explains this\n"
        "/dev/sda1 claim        CClaimsTooMuch partition 1 of /dev/sda differs       no known quirk explains this\n"
        "/dev/sda1 is-partition no             yes                     differs       no known quirk explains this\n"
        "2 devices: 0 agree, 0 differ by known quirks (see docs/quirks.md), 2 differ otherwise\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(audit({"--json", "--module", CLAIMS_TOO_MUCH}).output, HasSubstr("\"unknown\": 2"));
}

TEST_F(Audit, AModuleThatClaimsAMissingDeviceDiffersByNoKnownQuirk)
{
    const Ended ended = audit({"--module", CLAIMS_TOO_MUCH, "/dev/mapper/gone"});
    EXPECT_THAT(ended.output, HasSubstr("no such device differs       no known quirk explains this\n"));
    EXPECT_EQ(ended.status, 1);
}

// Differences that look like a quirk but are not what it foretells.
TEST_F(Audit, AVolumeThatAnotherModuleClaimsDiffersByNoKnownQuirk)
{
    listings({volume("vg-a", "lv1")});
    machine.mapped("dm-0", "vg--a-lv1", "LVM-AbCd");
    EXPECT_EQ(audit().status, 0);
    EXPECT_EQ(audit({"--module", CLAIMS_TOO_MUCH}).status, 1);
}

TEST_F(Audit, ShowsHostileNamesSafely)
{
    machine.mapped("dm-0", "a\x1b[31mb", "mpath-36001");
    EXPECT_THAT(audit().output, AllOf(HasSubstr("/dev/mapper/a\\x1b[31mb"), Not(HasSubstr("\x1b"))));
    EXPECT_THAT(audit({"--json"}).output, AllOf(HasSubstr("/dev/mapper/a\\\\x1b[31mb"), Not(HasSubstr("\x1b"))));
}

TEST_F(Audit, SkipsAnInputThatCannotBeAPath)
{
    machine.disk("xvda");
    const Ended ended = audit({"/dev/xvda", ""});
    EXPECT_THAT(ended.output, HasSubstr("1 device: 1 agrees"));
    EXPECT_THAT(ended.errors, HasSubstr("is empty"));
    EXPECT_EQ(ended.status, 2);
}

TEST_F(Audit, RefusesAnUnknownOption)
{
    const Ended ended = audit({"--differences"});
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.errors, HasSubstr("usage: kivclaim audit [OPTIONS] [PATH...]"));
    EXPECT_EQ(ended.status, 2);
}
