// The list of LVM logical volumes of the device-mapper module.
#include "framework/cfistringtool.h"
#include "modules/kiv_linux_device_mapper_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>

using recording::Host;
using recording::Lines;
using recording::lines;

namespace {

const char* const listing = "/sbin/lvdisplay";

// What the tool printed before it knew of paths.
const Lines oldForm = lines({"  --- Logical volume ---", "  LV Name                /dev/vg00/lvol1",
                             "  VG Name                vg00", "  LV UUID                e2xGyC-aaaa",
                             "  LV Write Access        read/write", "  LV Status              available", "   ",
                             "  --- Logical volume ---", "  LV Name                /dev/data/home",
                             "  VG Name                data", "  LV UUID                hVSrbh-bbbb", "   "});

// What it prints today; a pool has no path.
const Lines newForm = lines(
    {"  --- Logical volume ---", "  LV Path                /dev/vg00/lvol1", "  LV Name                lvol1",
     "  VG Name                vg00", "  LV UUID                e2xGyC-aaaa", "  LV Write Access        read/write",
     "  LV Creation host, time lab, 2026-11-20 10:00:00 +0000", "   ", "  --- Logical volume ---",
     "  LV Name                pool", "  VG Name                data", "  LV Pool metadata       pool_tmeta", "   "});

// Captured from lvdisplay of LVM 2.03.16, with two volumes that are not active.
const Lines captured = lines({"  --- Logical volume ---",
                              "  LV Path                /dev/vg-a/lvol1",
                              "  LV Name                lvol1",
                              "  VG Name                vg-a",
                              "  LV UUID                LrWXwK-wEYP-vjor-Cb7c-zTX7-LHfE-9ovKYd",
                              "  LV Write Access        read/write",
                              "  LV Creation host, time lab, 2026-11-20 23:12:23 +0000",
                              "  LV Status              NOT available",
                              "  LV Size                20.00 MiB",
                              "  Current LE             5",
                              "  Segments               1",
                              "  Allocation             inherit",
                              "  Read ahead sectors     auto",
                              "   ",
                              "  --- Logical volume ---",
                              "  LV Path                /dev/vg-a/home-dir",
                              "  LV Name                home-dir",
                              "  VG Name                vg-a",
                              "  LV UUID                hTszQ6-MeT1-w9fx-VrmD-k2oA-GfHx-UsQ3FU",
                              "  LV Write Access        read/write",
                              "  LV Creation host, time lab, 2026-11-20 23:12:23 +0000",
                              "  LV Status              NOT available",
                              "  LV Size                20.00 MiB",
                              "  Current LE             5",
                              "  Segments               1",
                              "  Allocation             inherit",
                              "  Read ahead sectors     auto",
                              "   "});

class LvList : public testing::Test {
protected:
    void SetUp() override { module.registerTraceLog(host.log()); }

    // Builds the list from `output` and returns the paths that were added, in order of appearance.
    Lines added(const Lines& output, int expectedStatus = 0)
    {
        host.prints(listing, output);
        host.forget();
        EXPECT_EQ(module.createLvmDeviceNamesList(), expectedStatus);
        return addedSoFar();
    }

    Lines addedSoFar() const
    {
        const std::string start = "CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[";
        Lines paths;
        for (const std::string& text : host.trace(6)) {
            if (text.find(start) == 0) {
                paths.push_back(text.substr(start.size(), text.size() - start.size() - 1));
            }
        }
        return paths;
    }

    Host host;
    CKivDeviceMapperClaim module;
};

}  // namespace

TEST_F(LvList, ReadsTheOldFormOfTheListing)
{
    EXPECT_EQ(added(oldForm), lines({"/dev/mapper/vg00-lvol1", "/dev/mapper/data-home"}));
    EXPECT_EQ(host.effects(),
              lines({"6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Command:[/sbin/lvdisplay]",
                     "runner with a log", "run [/sbin/lvdisplay]",
                     "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[/dev/mapper/vg00-lvol1]",
                     "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[/dev/mapper/data-home]"}));
}

TEST_F(LvList, ReadsTheNewFormOfTheListing)
{
    EXPECT_EQ(added(newForm), lines({"/dev/mapper/vg00-lvol1", "/dev/mapper/data-pool"}));
    EXPECT_EQ(host.effects(),
              lines({"6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Command:[/sbin/lvdisplay]",
                     "runner with a log", "run [/sbin/lvdisplay]",
                     "3 CKivDeviceMapperClaim::createLvmDeviceNamesList: / not found in LV NAME. Now searching for "
                     "space",
                     "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[/dev/mapper/vg00-lvol1]",
                     "3 CKivDeviceMapperClaim::createLvmDeviceNamesList: / not found in LV NAME. Now searching for "
                     "space",
                     "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[/dev/mapper/data-pool]"}));
}

TEST_F(LvList, ReadsWhatARealToolPrinted)
{
    EXPECT_EQ(added(captured), lines({"/dev/mapper/vg-a-lvol1", "/dev/mapper/vg-a-home-dir"}));
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg--a-home--dir"), 0) << "the name of its node";
}

TEST_F(LvList, AnswersWhetherAPathIsALogicalVolume)
{
    host.prints(listing, newForm);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol1"), 1);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/mpatha"), 0);
    EXPECT_EQ(host.calls(), lines({"runner with a log", "run [/sbin/lvdisplay]"})) << "the list is built once";
    EXPECT_EQ(host.trace(6)[3],
              "CKivDeviceMapperClaim::isLinuxLogicalVolume: The device path:[/dev/mapper/vg00-lvol1] is a logical "
              "volume");
    EXPECT_EQ(host.trace(6)[4],
              "CKivDeviceMapperClaim::isLinuxLogicalVolume: The device path:[/dev/mapper/mpatha] is not logical "
              "volume.");
    EXPECT_EQ(host.trace(3).back(),
              "CKivDeviceMapperClaim::isLinuxLogicalVolume: Checking for device:[/dev/mapper/mpatha]");
}

TEST_F(LvList, ComparesPathsExactly)
{
    host.prints(listing, oldForm);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol1"), 1);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol1/"), 0);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/VG00-lvol1"), 0);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol"), 0);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/vg00/lvol1"), 0);
    EXPECT_EQ(module.isLinuxLogicalVolume(""), 0);
}

TEST_F(LvList, DashesInNamesAreNotDoubled)
{
    EXPECT_EQ(added(lines({"LV Name /dev/vg-a/lv1", "VG Name vg-a"})), lines({"/dev/mapper/vg-a-lv1"}));
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg--a-lv1"), 0) << "the node's real name is not recognised";
    EXPECT_EQ(module.claim("/dev/mapper/vg--a-lv1"), 16U);
}

TEST_F(LvList, TheSameVolumeTwiceIsOneEntry)
{
    EXPECT_EQ(added(lines({"LV Name a", "VG Name v", "LV Name a", "VG Name v"})),
              lines({"/dev/mapper/v-a", "/dev/mapper/v-a"}));
    module.clearLvmDeviceNameList();
    host.prints(listing, {});
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/v-a"), 0) << "one clearing leaves no second entry";
}

TEST_F(LvList, ATrailingBlankMakesTheNameEmpty)
{
    EXPECT_EQ(added(lines({"  LV Name                lvol1 ", "  VG Name                vg00"})),
              lines({"/dev/mapper/vg00-"}));
}

TEST_F(LvList, ALabelWithoutItsBlankIsNotMatched)
{
    EXPECT_EQ(added(lines({"  LVName  lvol1", "  VG Name  vg00", "  lv name  x", "  VG Name  y"})), lines({}));
}

TEST_F(LvList, ALabelInOtherLettersIsNotMatched)
{
    EXPECT_EQ(added(lines({"LV Name a", "vg name wrong", "VG Name v"})), lines({"/dev/mapper/v-a"}));
}

TEST_F(LvList, NamesAreTrimmedOfBlanksTabsAndLineEnds)
{
    EXPECT_EQ(added(lines({"\tLV Name\t\t/dev/vg00/lvol1\r\n", "\tVG Name\t\tvg00 \t\r\n"})),
              lines({"/dev/mapper/vg00-lvol1"}));
    EXPECT_EQ(added(lines({"  LV Name                lvol2\r", "  VG Name                vg00\r"})),
              lines({"/dev/mapper/vg00-lvol2"}));
    EXPECT_EQ(added(lines({"LV Name \t\tlvol3", "VG Name\tvg00"})), lines({"/dev/mapper/vg00-lvol3"}));
}

TEST_F(LvList, NamesKeepEveryOtherCharacter)
{
    EXPECT_EQ(added(lines({"LV Name /dev/~g~/~a~", "VG Name ~g~"})), lines({"/dev/mapper/~g~-~a~"}));
}

TEST_F(LvList, ATabSeparatedBareNameIsCutAtTheLastBlank)
{
    // The last blank is the one inside the label.
    EXPECT_EQ(added(lines({"\tLV Name\t\tlvol1", "\tVG Name\t\tvg00"})), lines({"/dev/mapper/vg00-Name\t\tlvol1"}));
}

TEST_F(LvList, TheNameBeginsAfterTheLastSlash)
{
    EXPECT_EQ(added(lines({"LV Name /dev/vg/a b", "VG Name vg", "LV Name x/", "VG Name vg"})),
              lines({"/dev/mapper/vg-a b", "/dev/mapper/vg-"}));
}

TEST_F(LvList, TheGroupMayBeInTheVolumesOwnLine)
{
    EXPECT_EQ(added(lines({"VG Name g LV Name v", "VG Name other"})), lines({"/dev/mapper/g LV Name v-v"}));
}

TEST_F(LvList, LinesBetweenVolumeAndGroupDoNotMatter)
{
    EXPECT_EQ(added(lines({"LV Name a", "LV UUID u", "LV Name b", "VG Name g"})), lines({"/dev/mapper/g-a"}))
        << "a second volume before the group is passed over";
}

TEST_F(LvList, WithoutAGroupLineTheGroupComesFromTheVolumesLine)
{
    // The search leaves the index as it was, and npos plus seven is the sixth character.
    EXPECT_EQ(added(lines({"  LV Name                lvol1"})), lines({"/dev/mapper/ame                lvol1-lvol1"}));
    EXPECT_EQ(added(lines({"LV Name /dev/v/a", "VG Name v", "LV Name /dev/v/b"})),
              lines({"/dev/mapper/v-a", "/dev/mapper/e /dev/v/b-b"}));
}

TEST_F(LvList, OutputCutInTheMiddleGivesWhatWasThere)
{
    EXPECT_EQ(added(lines({"  LV Name                /dev/vg00/lvol1", "  VG Name                vg00",
                           "  LV Name                /dev/vg00/lv"})),
              lines({"/dev/mapper/vg00-lvol1", "/dev/mapper/ame                /dev/vg00/lv-lv"}));
    EXPECT_EQ(added(lines({"  LV Name                /dev/vg00/lvol1", "  VG Na"})),
              lines({"/dev/mapper/ame                /dev/vg00/lvol1-lvol1"}));
    EXPECT_EQ(added(lines({"  LV Na"})), lines({}));
}

TEST_F(LvList, AVolumeGroupWithoutANameGivesAnEmptyOne)
{
    EXPECT_EQ(added(lines({"LV Name a", "VG Name"})), lines({"/dev/mapper/-a"}));
    EXPECT_EQ(added(lines({"LV Name b", "VG Name   "})), lines({"/dev/mapper/-b"}));
}

TEST_F(LvList, AThousandVolumesAreAllFound)
{
    Lines output;
    for (int i = 0; i < 1000; ++i) {
        const std::string name = "lvol" + std::to_string(i);
        for (const std::string& line :
             {"  LV Path                /dev/vg00/" + name, "  LV Name                " + name,
              std::string("  VG Name                vg00")}) {
            output.push_back(line);
        }
    }
    EXPECT_EQ(added(output).size(), 1000U);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol0"), 1);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol999"), 1);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol1000"), 0);
}

TEST_F(LvList, AFailedCommandIsDecodedAndItsOutputTraced)
{
    host.fails(listing, 5, 5 << 8, lines({"  one", "  two"}));
    EXPECT_EQ(module.createLvmDeviceNamesList(), 6);
    EXPECT_EQ(
        host.effects(),
        lines({"6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Command:[/sbin/lvdisplay]", "runner with a log",
               "run [/sbin/lvdisplay]", "2 CKivDeviceMapperClaim::getExecPipeWaitPidStatus: exited, status= [5]",
               "1 CKivDeviceMapperClaim::createLvmDeviceNamesList: lvdisplay command execution failed. "
               "Status:[5]",
               "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[  one]",
               "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[  two]"}));
}

TEST_F(LvList, ACommandThatASignalEndedShowsTheSignal)
{
    host.fails(listing, 1, 15, {});
    EXPECT_EQ(module.createLvmDeviceNamesList(), 6);
    EXPECT_EQ(host.trace(2), lines({"CKivDeviceMapperClaim::getExecPipeWaitPidStatus: killed by signal [15]"}));
    EXPECT_EQ(host.trace(1), lines({"CKivDeviceMapperClaim::createLvmDeviceNamesList: lvdisplay command execution "
                                    "failed. Status:[15]"}));
}

TEST_F(LvList, TheOutputOfAFailedCommandIsNoList)
{
    host.fails(listing, 5, 5 << 8, oldForm).times(2);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol1"), 0);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol1"), 0) << "each further question retries";
    EXPECT_EQ(host.trace(6).back(), "CKivDeviceMapperClaim::isLinuxLogicalVolume: creating LVM device list failed");
}

TEST_F(LvList, AnExceptionOfTheRunnerIsSwallowed)
{
    host.throws(
        listing, [] { throw ztfi_pdk_4_4::EFiExecPipe(); }, oldForm);
    EXPECT_EQ(module.createLvmDeviceNamesList(), 1);
    EXPECT_EQ(host.trace(2), lines({"CKivDeviceMapperClaim::createLvmDeviceNamesList: Unknown exception caught"}));
    host.throws(listing, [] { throw 42; });
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol1"), 0);
    EXPECT_EQ(host.trace(6).back(), "CKivDeviceMapperClaim::isLinuxLogicalVolume: creating LVM device list failed");
}

TEST_F(LvList, ALogThatKeepsThrowingIsSwallowedAsWell)
{
    host.failsTracing("CKivDeviceMapperClaim::createLvmDeviceNamesList: ");
    EXPECT_EQ(module.createLvmDeviceNamesList(), 1);
    EXPECT_EQ(host.trace(2), lines({"CKivDeviceMapperClaim::createLvmDeviceNamesList: Unknown exception caught"}));
    EXPECT_EQ(host.logCount(), 2U);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol1"), 0);
    EXPECT_EQ(module.claim("/dev/mapper/vg00-lvol1"), 16U);
}

TEST_F(LvList, AnEmptyListIsBuiltAgainForEveryQuestion)
{
    host.prints(listing, {}).times(3);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/a"), 0);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/a"), 0);
    EXPECT_EQ(module.claim("/dev/mapper/a"), 16U);
    EXPECT_EQ(module.claim("/dev/sda"), 0U) << "a path outside the directory asks nothing";
}

TEST_F(LvList, IsForgottenOnlyByTheModuleItself)
{
    host.prints(listing, oldForm);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol1"), 1);
    host.forget();
    module.clearLvmDeviceNameList();
    EXPECT_EQ(host.effects(), lines({}));
    host.prints(listing, lines({"LV Name new", "VG Name vg00"}));
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-lvol1"), 0);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-new"), 1);
}

TEST_F(LvList, AFilledListIsNotRefreshed)
{
    host.prints(listing, oldForm);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-created-later"), 0);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/vg00-created-later"), 0);
}

TEST_F(LvList, BuildingAddsToWhatIsThere)
{
    added(lines({"LV Name a", "VG Name v"}));
    added(lines({"LV Name b", "VG Name v"}));
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/v-a"), 1);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/v-b"), 1);
}

TEST_F(LvList, APartialListAfterAnExceptionIsUsedByTheNextQuestion)
{
    host.prints(listing, lines({"LV Name a", "VG Name v", "LV Name b", "VG Name v"}));
    host.failsTracing("CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[/dev/mapper/v-b]");
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/v-a"), 0) << "the build failed";
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/v-a"), 1) << "the names before the failure stayed";
}

#ifdef KIVCLAIM_OWN_STRING_TOOLS

TEST_F(LvList, AMissThatLeavesTheIndexAfterTheLastLineIsAnException)
{
    for (const unsigned long left : {1UL, 2UL, ULONG_MAX}) {
        host.indexAfterMiss = left;
        EXPECT_EQ(added(lines({"LV Name a"}), 1), lines({})) << left;
        EXPECT_EQ(host.trace(2), lines({"CKivDeviceMapperClaim::createLvmDeviceNamesList: Unknown exception caught"}));
    }
}

TEST_F(LvList, AMissThatLeavesTheIndexOnAShortLineIsAnException)
{
    host.indexAfterMiss = 0;
    EXPECT_EQ(added(lines({"short", "LV Name a"}), 1), lines({}));
    host.indexAfterMiss = 2;
    EXPECT_EQ(added(lines({"x", "LV Name a", "six-ch"})), lines({"/dev/mapper/-a"})) << "just long enough";
}

TEST_F(LvList, ALineWithNeitherSlashNorBlankEndsTheBuildAndKeepsWhatWasThere)
{
    host.falseHit = "LVName";
    EXPECT_EQ(added(lines({"LV Name /dev/v/a", "VG Name v", "LVName", "VG Name v"}), 6), lines({"/dev/mapper/v-a"}));
    EXPECT_EQ(host.trace(3), lines({"CKivDeviceMapperClaim::createLvmDeviceNamesList: / not found in LV NAME. Now "
                                    "searching for space"}));
    EXPECT_EQ(host.trace(1), lines({"CKivDeviceMapperClaim::createLvmDeviceNamesList: / and space both not found in "
                                    "lvdisplay LV NAME"}));
    host.forget();
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/v-a"), 1) << "the partial list is used without a rebuild";
    EXPECT_EQ(host.calls(), lines({}));
}

TEST_F(LvList, ABuildThatEndsEarlyAnswersNoForThisQuestion)
{
    host.falseHit = "LVName";
    host.prints(listing, lines({"LV Name /dev/v/a", "VG Name v", "LVName"}));
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/v-a"), 0);
    EXPECT_EQ(host.trace(6).back(), "CKivDeviceMapperClaim::isLinuxLogicalVolume: creating LVM device list failed");
}

TEST_F(LvList, AHitThatPointsAfterTheLastLineIsAnException)
{
    for (const unsigned long wild : {2UL, ULONG_MAX}) {
        host.indexAfterHit = wild;
        EXPECT_EQ(added(lines({"LV Name a", "VG Name v"}), 1), lines({})) << wild;
    }
}

TEST_F(LvList, AMissThatMovesTheIndexBackwardsReadsNoLineAgain)
{
    host.indexAfterMiss = 0;
    EXPECT_EQ(added(lines({"a long enough line", "LV Name a", "LV Name b"})),
              lines({"/dev/mapper/enough line-a", "/dev/mapper/enough line-b"}));
}

#endif
