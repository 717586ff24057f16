// The gateway to the volume manager's multipathing tools: its queries, rescan and removal.
#include "tests/volume_manager_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>

using recording::lines;
using recording::Lines;
using ztfi_pdk_4_4::EFiExecPipe;

// The node of an OS disk.

TEST_F(VolumeManagerSupport, TheNodeIsTheFirstColumnOfTheFirstRow)
{
    EXPECT_EQ(nodeIn(lines({"kiv0_1 ENABLED  SAN  2", "kiv0_2 ENABLED  SAN  2"})), "kiv0_1");
    EXPECT_EQ(
        host.effectsWithoutLineNumbers(),
        lines({
            "6 Entering Function getZtVMDiskForOSDiskHandler [kiv_nativepath_claim.cpp]",
            "6 Entering Function executeCommand [kiv_nativepath_claim.cpp]",
            "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
            "runner with a log",
            "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
            "6 ExecuteCommand passed with output 'NAME   STATE============kiv0_1 ENABLED  SAN  2kiv0_2 ENABLED  SAN  2'",
            "6 Exiting Function executeCommand [kiv_nativepath_claim.cpp]",
            "6 Exiting Function getZtVMDiskForOSDiskHandler [kiv_nativepath_claim.cpp]",
        }));
}

TEST_F(VolumeManagerSupport, ANodeRowMayHaveTabsLineEndsAndBlanksAndMayFollowBlankRows)
{
    EXPECT_EQ(nodeIn(lines({"kiv0_1"})), "kiv0_1");
    EXPECT_EQ(nodeIn(lines({"  kiv0_1\t ENABLED\n"})), "kiv0_1");
    EXPECT_EQ(nodeIn(lines({"\t\tkiv0_1\tENABLED"})), "kiv0_1");
    EXPECT_EQ(nodeIn(lines({"kiv0_1\n"})), "kiv0_1");
    EXPECT_EQ(nodeIn(lines({"", " \t\n", "kiv0_1 ENABLED", "kiv0_2"})), "kiv0_1");
    EXPECT_EQ(nodeIn(lines({"NAME"})), "NAME") << "a node may have any name";
    EXPECT_EQ(nodeIn(lines({"~kiv~0_1~ ENABLED"})), "~kiv~0_1~");
    EXPECT_EQ(nodeIn(lines({"kiv0_1\rENABLED"})), "kiv0_1\rENABLED") << "a carriage return separates nothing";
}

TEST_F(VolumeManagerSupport, AnEmptyAnswerCountsAsSuccess)
{
    EXPECT_EQ(nodeIn({}), "");
    EXPECT_EQ(nodeIn(lines({"", " ", "\t\n"})), "");
    host.prints(nodeOfSdc, lines({"no such", "disk"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", name), 0);
    EXPECT_EQ(name, "");
    EXPECT_EQ(host.trace(2), lines({}));
}

TEST_F(VolumeManagerSupport, TheHeaderIsLookedForInUpperCaseAndAnywhereInTheFirstLine)
{
    host.prints(nodeOfSdc, lines({"DISKNAMES", "", "kiv0_1"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", name), 0);
    EXPECT_EQ(name, "kiv0_1");
    host.prints(nodeOfSdc, lines({"name", "====", "kiv0_1"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", name), 0);
    EXPECT_EQ(name, "");
    EXPECT_EQ(host.trace(2), lines({}));
}

TEST_F(VolumeManagerSupport, ASearchWithoutAHitDecidesWhateverItLeavesAsTheLine)
{
    host.indexAfterMiss = 1;
    host.prints(nodeOfSdc, lines({"no such", "disk", "here"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", name), 0);
    host.prints(pathsOfNode, lines({"no such", "node", "here"}));
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 0);
    EXPECT_EQ(name, "");
    EXPECT_EQ(host.trace(2), lines({}));
}

TEST_F(VolumeManagerSupport, AHeaderOnAnotherLineIsNoValidOutputOfTheNodeQuery)
{
    host.prints(nodeOfSdc, lines({"warning", "NAME", "====", "kiv0_1"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", name), 1);
    EXPECT_EQ(name, "");
    EXPECT_EQ(host.effectsInside(), lines({"3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                                           "runner with a log", "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                           "6 ExecuteCommand passed with output 'warningNAME====kiv0_1'",
                                           "2 Warning - no valid output of command."}));
    host.forget();
    host.prints(nodeOfSdc, lines({"warning", "====", "MYNAME1"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", name), 1) << "inside a row";
    EXPECT_EQ(host.trace(2), lines({"Warning - no valid output of command."}));
}

TEST_F(VolumeManagerSupport, FewerThanTwoLinesAreNoOutputOfTheNodeQuery)
{
    host.prints(nodeOfSdc, lines({"NAME"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", name), 1);
    EXPECT_EQ(name, "");
    EXPECT_EQ(host.trace(2), lines({"Warning - no output of command."}));
    host.forget();
    host.prints(nodeOfSdc, {});
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", name), 1);
    EXPECT_EQ(host.trace(2), lines({"Warning - no output of command."}));
}

TEST_F(VolumeManagerSupport, AFailedNodeQueryIsReportedWithItsCommandAndItsOutput)
{
    host.fails(nodeOfSdc, 9, 2304, lines({"NAME", "====", "kiv0_1"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", name), 1);
    EXPECT_EQ(name, "") << "the output of a failed query is not read";
    EXPECT_EQ(
        host.trace(2),
        lines(
            {"Warning - failed with message='NAME====kiv0_1' and error no '9'.",
             "CZtKIVSupport::getZtVMDiskForOSDiskHandler : Command [/usr/sbin/ztkivadm   getkivnode  nodename=sdc] failed with error [NAME====kiv0_1]"}));
}

TEST_F(VolumeManagerSupport, ARunnersExceptionIsAFailedQuery)
{
    host.throws(
        nodeOfSdc, [] { throw EFiExecPipe(); }, lines({"half"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", name), 1);
    EXPECT_EQ(
        host.effectsInside(),
        lines(
            {"3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc", "runner with a log",
             "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
             "1 ExecuteCommand - exception thrown in command execution.",
             "2 CZtKIVSupport::getZtVMDiskForOSDiskHandler : Command [/usr/sbin/ztkivadm   getkivnode  nodename=sdc] failed with error [half]"}));
}

TEST_F(VolumeManagerSupport, TheSameStringMayBeDiskAndAnswer)
{
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    std::string text = "sdc";
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler(text, text), 0);
    EXPECT_EQ(text, "kiv0_1");
    host.prints(pathsOfNode, lines({"NAME", "====", "sdf ENABLED"}));
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk(text, text), 0);
    EXPECT_EQ(text, "sdf");
}

// The OS path of a node.

TEST_F(VolumeManagerSupport, TheActivePathWinsThoughAnEnabledOneCameFirst)
{
    EXPECT_EQ(pathIn(lines({"sdc ENABLED SECONDARY", "sdd ENABLED(A) PRIMARY"})), "sdd");
    EXPECT_EQ(
        host.effectsWithoutLineNumbers(),
        lines({
            "6 Entering Function getOSDiskHandleForZtVMDisk [kiv_nativepath_claim.cpp]",
            "6 Entering Function executeCommand [kiv_nativepath_claim.cpp]",
            "3 ExecuteCommand command: /usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1",
            "runner with a log",
            "run [/usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1]",
            "6 ExecuteCommand passed with output 'NAME STATE TYPE===============sdc ENABLED SECONDARYsdd ENABLED(A) PRIMARY'",
            "6 Exiting Function executeCommand [kiv_nativepath_claim.cpp]",
            "6 Exiting Function getOSDiskHandleForZtVMDisk [kiv_nativepath_claim.cpp]",
        }));
}

TEST_F(VolumeManagerSupport, AnEnabledPathBeatsAPrimaryOne)
{
    EXPECT_EQ(pathIn(lines({"sdc DISABLED PRIMARY", "sdd ENABLED SECONDARY"})), "sdd");
    EXPECT_EQ(pathIn(lines({"sdd ENABLED SECONDARY", "sde ENABLED PRIMARY"})), "sdd") << "the type counts for nothing";
}

TEST_F(VolumeManagerSupport, APrimaryPathThatIsNotEnabledIsTheLastResort)
{
    EXPECT_EQ(pathIn(lines({"sdc DISABLED PRIMARY", "sdd DISABLED SECONDARY"})), "sdc");
    EXPECT_EQ(pathIn(lines({"sdd DISABLED SECONDARY", "sdc DISABLED PRIMARY"})), "sdc");
}

TEST_F(VolumeManagerSupport, NoUsablePathIsAFailure)
{
    EXPECT_EQ(pathIn(lines({"sdc DISABLED SECONDARY", "sdd DISABLED SECONDARY"})), "");
    EXPECT_EQ(host.trace(2), lines({"Unable to get enabled disk path for kiv node 'kiv0_1'"}));
    host.forget();
    EXPECT_EQ(pathIn({}), "") << "only header and rule";
    EXPECT_EQ(host.trace(2), lines({"Unable to get enabled disk path for kiv node 'kiv0_1'"}));
    host.forget();
    EXPECT_EQ(pathIn(lines({"", " \t", "sdc", "sdd UNKNOWN"})), "") << "rows with too few columns";
    EXPECT_EQ(host.trace(2), lines({"Unable to get enabled disk path for kiv node 'kiv0_1'"}));
}

TEST_F(VolumeManagerSupport, TheFirstRowOfTheBestKindWinsInEveryOrderOfTheRows)
{
    const std::vector<Lines> tables = {
        lines({"sda ENABLED(A) SECONDARY", "sdb ENABLED(A) PRIMARY", "sdc ENABLED PRIMARY", "sdd DISABLED PRIMARY",
               "sde DISABLED SECONDARY"}),
        lines({"sda ENABLED SECONDARY", "sdb ENABLED PRIMARY", "sdc DISABLED PRIMARY", "sdd DISABLED SECONDARY", ""}),
        lines({"sda DISABLED PRIMARY", "sdb FAILED PRIMARY", "sdc DISABLED SECONDARY", "sdd", "   "}),
    };
    for (Lines rows : tables) {
        std::sort(rows.begin(), rows.end());
        int orders = 0;
        do {
            ++orders;
            const std::string path = pathIn(rows);
            const auto best = std::find_if(rows.begin(), rows.end(), [](const std::string& row) {
                return row.compare(0, 4, "sda ") == 0 || row.compare(0, 4, "sdb ") == 0;
            });
            EXPECT_EQ(path, best->substr(0, 3)) << testing::PrintToString(rows);
        } while (std::next_permutation(rows.begin(), rows.end()));
        EXPECT_EQ(orders, 120);
    }
}

TEST_F(VolumeManagerSupport, StatesAndTypesAreFoundInsideLongerWordsInUpperCaseOnly)
{
    EXPECT_EQ(pathIn(lines({"sda ENABLED", "sdb xENABLED(A)y"})), "sdb");
    EXPECT_EQ(pathIn(lines({"sda DISABLED PRIMARY", "sdb REENABLED(B)"})), "sdb");
    EXPECT_EQ(pathIn(lines({"sda ENABLED(a", "sdb ENABLED(A)"})), "sdb");
    EXPECT_EQ(pathIn(lines({"sda enabled(a) primary", "sdb OFFLINE xPRIMARYy"})), "sdb");
    EXPECT_EQ(pathIn(lines({"sda enabled SECONDARY"})), "");
}

TEST_F(VolumeManagerSupport, EveryWordCountsInItsOwnColumnOnly)
{
    EXPECT_EQ(pathIn(lines({"ENABLED(A) DISABLED SECONDARY", "sdb ENABLED"})), "sdb");
    EXPECT_EQ(pathIn(lines({"sda DISABLED ENABLED(A)", "sdb DISABLED PRIMARY"})), "sdb");
    EXPECT_EQ(pathIn(lines({"sda PRIMARY", "sdb PRIMARY SECONDARY", "sdc DISABLED x PRIMARY"})), "");
}

TEST_F(VolumeManagerSupport, PathRowsMayHaveTabsLineEndsAndRunsOfBlanks)
{
    EXPECT_EQ(pathIn(lines({"\tsda \t  ENABLED\t\tPRIMARY\n"})), "sda");
    EXPECT_EQ(pathIn(lines({"", "\t", "sda\tDISABLED\tPRIMARY", "", "sdb\tENABLED(A)"})), "sdb");
}

TEST_F(VolumeManagerSupport, AMissingHeaderIsASuccessfulPathQueryWithoutAnAnswer)
{
    host.prints(pathsOfNode, lines({"no such", "node"}));
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 0);
    EXPECT_EQ(name, "");
    EXPECT_EQ(host.trace(2), lines({}));
}

TEST_F(VolumeManagerSupport, AHeaderOnAnotherLineIsNoValidOutputOfThePathQuery)
{
    host.prints(pathsOfNode, lines({"warning", "NAME", "====", "sda ENABLED"}));
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 1);
    EXPECT_EQ(name, "");
    EXPECT_EQ(host.trace(2), lines({"Warning - no valid output of command."}));
}

TEST_F(VolumeManagerSupport, FewerThanTwoLinesAreNoOutputOfThePathQuery)
{
    host.prints(pathsOfNode, lines({"NAME"}));
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 1);
    EXPECT_EQ(name, "");
    host.prints(pathsOfNode, {});
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 1);
    EXPECT_EQ(host.trace(2), lines({"Warning - no output of command.", "Warning - no output of command."}));
}

TEST_F(VolumeManagerSupport, AFailedPathQueryIsReportedWithItsCommandAndItsOutput)
{
    host.fails(pathsOfNode, 2, 512, lines({"NAME", "====", "sda ENABLED"}));
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 1);
    EXPECT_EQ(name, "");
    EXPECT_EQ(
        host.trace(2),
        lines(
            {"Warning - failed with message='NAME====sda ENABLED' and error no '2'.",
             "CZtKIVSupport::getOSDiskHandleForZtVMDisk : Command [/usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1] failed with error [NAME====sda ENABLED]"}));
}

// Rescan and removal.

TEST_F(VolumeManagerSupport, ARescanNamesItsDisksOrNoneForAll)
{
    host.prints("/usr/sbin/ztdisk   scandisks  device=sdc,sdd", lines({"not read"}));
    host.prints(rescanSdc, {});
    host.prints("/usr/sbin/ztdisk   scandisks  device=,", {});
    host.prints("/usr/sbin/ztdisk   scandisks  device=sdc,,sdd", {});
    host.prints(rescanAll, {}).times(2);
    EXPECT_EQ(support.ztvmScanDisks(lines({"sdc", "sdd"})), 0);
    EXPECT_EQ(support.ztvmScanDisks(lines({"sdc"})), 0);
    EXPECT_EQ(support.ztvmScanDisks(lines({"", ""})), 0);
    EXPECT_EQ(support.ztvmScanDisks(lines({"sdc", "", "sdd"})), 0);
    EXPECT_EQ(support.ztvmScanDisks({}), 0);
    EXPECT_EQ(support.ztvmScanDisks(lines({""})), 0) << "one empty name is no name";
    EXPECT_EQ(host.trace(2), lines({}));
    EXPECT_EQ(host.effectsWithoutLineNumbers()[0], "6 Entering Function ztvmScanDisks [kiv_nativepath_claim.cpp]");
    EXPECT_EQ(host.effectsWithoutLineNumbers().back(), "6 Exiting Function ztvmScanDisks [kiv_nativepath_claim.cpp]");
}

TEST_F(VolumeManagerSupport, AFailedRescanIsReportedWithItsCommandAndItsOutput)
{
    host.fails("/usr/sbin/ztdisk   scandisks  device=sdc,sdd", 5, 1280, lines({"not ", "now"}));
    EXPECT_EQ(support.ztvmScanDisks(lines({"sdc", "sdd"})), 1);
    EXPECT_EQ(
        host.trace(2),
        lines(
            {"Warning - failed with message='not now' and error no '5'.",
             "CZtKIVSupport::ztvmScanDisks : Command [/usr/sbin/ztdisk   scandisks  device=sdc,sdd] failed with error [not now]"}));
    host.forget();
    host.throws(rescanAll, [] { throw EFiExecPipe(); });
    EXPECT_EQ(support.ztvmScanDisks({}), 1);
    EXPECT_EQ(host.trace(2),
              lines({"CZtKIVSupport::ztvmScanDisks : Command [/usr/sbin/ztdisk   scandisks ] failed with error []"}));
}

TEST_F(VolumeManagerSupport, ARemovalNamesItsNode)
{
    host.prints(removeNode, lines({"not read"}));
    EXPECT_EQ(support.removeDisksFromZtVM("kiv0_1"), 0);
    EXPECT_EQ(host.effectsWithoutLineNumbers(),
              lines({
                  "6 Entering Function removeDisksFromZtVM [kiv_nativepath_claim.cpp]",
                  "6 Entering Function executeCommand [kiv_nativepath_claim.cpp]",
                  "3 ExecuteCommand command: /usr/sbin/ztdisk   rm kiv0_1",
                  "runner with a log",
                  "run [/usr/sbin/ztdisk   rm kiv0_1]",
                  "6 ExecuteCommand passed with output 'not read'",
                  "6 Exiting Function executeCommand [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function removeDisksFromZtVM [kiv_nativepath_claim.cpp]",
              }));
}

TEST_F(VolumeManagerSupport, AFailedRemovalIsRecordedAndGivesZero)
{
    host.fails(removeNode, 4, 1024, lines({"busy"}));
    EXPECT_EQ(support.removeDisksFromZtVM("kiv0_1"), 0);
    EXPECT_EQ(host.trace(2), lines({"Warning - failed with message='busy' and error no '4'.",
                                    "Warning - removing disk from ztvm db is failed."}));
    host.throws(removeNode, [] { throw EFiExecPipe(); });
    EXPECT_EQ(support.removeDisksFromZtVM("kiv0_1"), 0);
    EXPECT_EQ(host.trace(2).back(), "Warning - removing disk from ztvm db is failed.");
}
