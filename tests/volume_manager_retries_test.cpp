// The gateway to the volume manager's multipathing tools: the lookups that ask again, and their pauses.
#include "tests/volume_manager_fixture.h"

#include <gtest/gtest.h>

using recording::lines;
using recording::Lines;

// The waited form.

TEST_F(VolumeManagerSupport, TheWaitedFormAsksOnceWhenTheFirstAnswerIsASuccess)
{
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), 0);
    EXPECT_EQ(name, "kiv0_1");
    EXPECT_EQ(host.effectsWithoutLineNumbers(),
              lines({
                  "6 Entering Function getZtVMDiskForOSDiskHandler_Waited [kiv_nativepath_claim.cpp]",
                  "6 Entering Function getZtVMDiskForOSDiskHandler [kiv_nativepath_claim.cpp]",
                  "6 Entering Function executeCommand [kiv_nativepath_claim.cpp]",
                  "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                  "runner with a log",
                  "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                  "6 ExecuteCommand passed with output 'NAME====kiv0_1'",
                  "6 Exiting Function executeCommand [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function getZtVMDiskForOSDiskHandler [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function getZtVMDiskForOSDiskHandler_Waited [kiv_nativepath_claim.cpp]",
              }));
}

TEST_F(VolumeManagerSupport, TheWaitedFormDoesNotRetryAnEmptyAnswer)
{
    host.prints(nodeOfSdc, lines({"NAME", "===="}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), 0);
    EXPECT_EQ(name, "");
    EXPECT_EQ(host.calls(), lines({"runner with a log", "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]"}));
}

TEST_F(VolumeManagerSupport, TheWaitedFormRescansTheDiskAfterAFailureAndAsksAgain)
{
    host.fails(nodeOfSdc, 1, 256, {});
    host.prints(nodeOfSdc, lines({"one line"}));
    host.prints(nodeOfSdc, lines({"warning", "NAME"}));
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    host.prints(rescanSdc, {}).times(2);
    host.fails(rescanSdc, 1, 256, {});
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), 0);
    EXPECT_EQ(name, "kiv0_1");
    EXPECT_EQ(host.calls(), lines({"runner with a log", "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                   "sleep 5", "runner with a log", "run [/usr/sbin/ztdisk   scandisks  device=sdc]",
                                   "runner with a log", "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                   "sleep 5", "runner with a log", "run [/usr/sbin/ztdisk   scandisks  device=sdc]",
                                   "runner with a log", "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                   "sleep 5", "runner with a log", "run [/usr/sbin/ztdisk   scandisks  device=sdc]",
                                   "runner with a log", "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]"}));
    EXPECT_EQ(host.trace(2).back(),
              "CZtKIVSupport::ztvmScanDisks : Command [/usr/sbin/ztdisk   scandisks  device=sdc] failed with error []")
        << "a failed rescan changes nothing";
}

TEST_F(VolumeManagerSupport, TheWaitedFormGivesUpAfterFourQueriesPausesAndRescans)
{
    host.fails(nodeOfSdc, 9, 2304, {}).times(4);
    host.prints(rescanSdc, {}).times(4);
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), 1);
    EXPECT_EQ(name, "");
    Lines expected;
    for (int attempt = 0; attempt < 4; ++attempt) {
        append(
            expected,
            lines({
                "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                "runner with a log",
                "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                "2 Warning - failed with message='' and error no '9'.",
                "2 CZtKIVSupport::getZtVMDiskForOSDiskHandler : Command [/usr/sbin/ztkivadm   getkivnode  nodename=sdc] failed with error []",
                "6 Obtaining kiv nodes failed. need to retry.",
                "sleep 5",
                "3 ExecuteCommand command: /usr/sbin/ztdisk   scandisks  device=sdc",
                "runner with a log",
                "run [/usr/sbin/ztdisk   scandisks  device=sdc]",
            }));
    }
    append(expected, lines({"2 Warning - obtaining kiv nodes failed even after multiple retries."}));
    EXPECT_EQ(host.effectsInside(), expected);
}

// The refreshed form.

TEST_F(VolumeManagerSupport, TheRefreshedFormRemovesTheNodeAndFindsItAgain)
{
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    host.fails(removeNode, 1, 256, {});
    host.fails(rescanAll, 1, 256, {});
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_2"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), 0);
    EXPECT_EQ(name, "kiv0_2");
    EXPECT_EQ(host.effectsInside(),
              lines({
                  "6 We will remove kiv node from ztvm and rescan to regenerate kiv node for disk [sdc].",
                  "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                  "runner with a log",
                  "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                  "6 ExecuteCommand passed with output 'NAME====kiv0_1'",
                  "6 Obtained kiv nodes is [kiv0_1].",
                  "3 ExecuteCommand command: /usr/sbin/ztdisk   rm kiv0_1",
                  "runner with a log",
                  "run [/usr/sbin/ztdisk   rm kiv0_1]",
                  "2 Warning - failed with message='' and error no '1'.",
                  "2 Warning - removing disk from ztvm db is failed.",
                  "3 ExecuteCommand command: /usr/sbin/ztdisk   scandisks ",
                  "runner with a log",
                  "run [/usr/sbin/ztdisk   scandisks ]",
                  "2 Warning - failed with message='' and error no '1'.",
                  "2 CZtKIVSupport::ztvmScanDisks : Command [/usr/sbin/ztdisk   scandisks ] failed with error []",
                  "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                  "runner with a log",
                  "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                  "6 ExecuteCommand passed with output 'NAME====kiv0_2'",
                  "6 After refresh, obtained kiv nodes is [kiv0_2].",
              }))
        << "failures of the removal and of the rescan change nothing";
}

TEST_F(VolumeManagerSupport, TheRefreshedFormRemovesNothingWhenItsFirstQueryFails)
{
    host.fails(nodeOfSdc, 1, 256, {});
    host.prints(rescanAll, {});
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), 0);
    EXPECT_EQ(name, "kiv0_1");
    EXPECT_EQ(host.calls(), lines({"runner with a log", "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                   "runner with a log", "run [/usr/sbin/ztdisk   scandisks ]", "runner with a log",
                                   "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]"}));
}

TEST_F(VolumeManagerSupport, TheRefreshedFormRemovesEvenAnEmptyNode)
{
    host.prints(nodeOfSdc, lines({"NAME", "===="})).times(2);
    host.prints("/usr/sbin/ztdisk   rm ", {});
    host.prints(rescanAll, {});
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), 0);
    EXPECT_EQ(name, "");
    EXPECT_EQ(host.effectsInside(),
              lines({
                  "6 We will remove kiv node from ztvm and rescan to regenerate kiv node for disk [sdc].",
                  "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                  "runner with a log",
                  "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                  "6 ExecuteCommand passed with output 'NAME===='",
                  "6 Obtained kiv nodes is [].",
                  "3 ExecuteCommand command: /usr/sbin/ztdisk   rm ",
                  "runner with a log",
                  "run [/usr/sbin/ztdisk   rm ]",
                  "3 ExecuteCommand command: /usr/sbin/ztdisk   scandisks ",
                  "runner with a log",
                  "run [/usr/sbin/ztdisk   scandisks ]",
                  "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                  "runner with a log",
                  "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                  "6 ExecuteCommand passed with output 'NAME===='",
              }))
        << "an empty answer is not retried, and an empty node is not announced";
}

TEST_F(VolumeManagerSupport, TheRefreshedFormGivesUpAfterFourRescansQueriesAndPauses)
{
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    host.prints(removeNode, {});
    host.fails(nodeOfSdc, 9, 2304, {}).times(4);
    host.prints(rescanAll, {}).times(4);
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), 1);
    EXPECT_EQ(name, "") << "the node that was removed is not the answer";
    Lines expected = lines({
        "6 We will remove kiv node from ztvm and rescan to regenerate kiv node for disk [sdc].",
        "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
        "runner with a log",
        "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
        "6 ExecuteCommand passed with output 'NAME====kiv0_1'",
        "6 Obtained kiv nodes is [kiv0_1].",
        "3 ExecuteCommand command: /usr/sbin/ztdisk   rm kiv0_1",
        "runner with a log",
        "run [/usr/sbin/ztdisk   rm kiv0_1]",
    });
    for (int attempt = 0; attempt < 4; ++attempt) {
        append(
            expected,
            lines({
                "3 ExecuteCommand command: /usr/sbin/ztdisk   scandisks ",
                "runner with a log",
                "run [/usr/sbin/ztdisk   scandisks ]",
                "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                "runner with a log",
                "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                "2 Warning - failed with message='' and error no '9'.",
                "2 CZtKIVSupport::getZtVMDiskForOSDiskHandler : Command [/usr/sbin/ztkivadm   getkivnode  nodename=sdc] failed with error []",
                "6 Obtaining kiv nodes failed. need to retry.",
                "sleep 10",
            }));
    }
    append(expected, lines({"2 Warning - obtaining kiv nodes failed even after multiple retries."}));
    EXPECT_EQ(host.effectsInside(), expected);
}

TEST_F(VolumeManagerSupport, TheRefreshedFormPausesBeforeItAsksAgain)
{
    host.fails(nodeOfSdc, 1, 256, {}).times(4);
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    host.prints(rescanAll, {}).times(4);
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), 0);
    EXPECT_EQ(name, "kiv0_1");
    EXPECT_EQ(host.calls(), lines({"runner with a log",
                                   "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                   "runner with a log",
                                   "run [/usr/sbin/ztdisk   scandisks ]",
                                   "runner with a log",
                                   "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                   "sleep 10",
                                   "runner with a log",
                                   "run [/usr/sbin/ztdisk   scandisks ]",
                                   "runner with a log",
                                   "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                   "sleep 10",
                                   "runner with a log",
                                   "run [/usr/sbin/ztdisk   scandisks ]",
                                   "runner with a log",
                                   "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                   "sleep 10",
                                   "runner with a log",
                                   "run [/usr/sbin/ztdisk   scandisks ]",
                                   "runner with a log",
                                   "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]"}));
    EXPECT_EQ(host.trace(6)[host.trace(6).size() - 2], "After refresh, obtained kiv nodes is [kiv0_1].");
}

// Pauses into which signals come.

TEST_F(VolumeManagerSupport, TheRestOfAnInterruptedPauseIsSleptAsWell)
{
    host.fails(nodeOfSdc, 1, 256, {});
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    host.prints(rescanSdc, {});
    host.leftOverByPauses = {3, 1};
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), 0);
    EXPECT_EQ(host.calls(),
              lines({"runner with a log", "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]", "sleep 5", "sleep 3",
                     "sleep 1", "runner with a log", "run [/usr/sbin/ztdisk   scandisks  device=sdc]",
                     "runner with a log", "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]"}));
}

TEST_F(VolumeManagerSupport, TheRestOfAnInterruptedRefreshedPauseIsSleptAsWell)
{
    host.fails(nodeOfSdc, 1, 256, {}).times(2);
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    host.prints(rescanAll, {}).times(2);
    host.leftOverByPauses = {9};
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), 0);
    const Lines calls = host.calls();
    EXPECT_EQ(Lines(calls.begin() + 6, calls.begin() + 8), lines({"sleep 10", "sleep 9"}));
}

TEST_F(VolumeManagerSupport, APauseThatEndsByItselfIsOverWhateverWasInterruptedBefore)
{
    host.fails(nodeOfSdc, 1, 256, {});
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    host.prints(rescanSdc, {});
    host.leftOverByPauses = {4, 3, 2, 1};
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), 0);
    const Lines calls = host.calls();
    EXPECT_EQ(Lines(calls.begin() + 2, calls.begin() + 8),
              lines({"sleep 5", "sleep 4", "sleep 3", "sleep 2", "sleep 1", "runner with a log"}));
}

TEST_F(VolumeManagerSupport, ASleepThatReturnsTheWholePauseWithoutASignalIsCalledOnce)
{
    host.fails(nodeOfSdc, 1, 256, {});
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    host.prints(rescanSdc, {});
    host.leftOverByPauses = {5};
    host.errnoOfPauses = 0;
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), 0);
    const Lines calls = host.calls();
    EXPECT_EQ(Lines(calls.begin() + 2, calls.begin() + 4), lines({"sleep 5", "runner with a log"}));
}

TEST_F(VolumeManagerSupport, ATimerThatInterruptsEveryPauseDoesNotShortenIt)
{
    for (const long milliseconds : {100L, 333L, 999L, 1000L, 1001L, 4000L, 4999L, 5000L}) {
        host.fails(nodeOfSdc, 1, 256, {});
        host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
        host.prints(rescanSdc, {});
        host.signalMilliseconds = milliseconds;
        host.clockMilliseconds = 0;
        EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), 0);
        EXPECT_GE(host.clockMilliseconds, 5000) << milliseconds;
        EXPECT_LT(host.clockMilliseconds, 6000) << milliseconds;
    }
}

// A sleep() that leaves errno alone still tells of the signal by what it leaves over.
TEST_F(VolumeManagerSupport, APauseThatLeavesASecondOverIsNotShortenedByItsRoundingWhateverErrnoIs)
{
    host.fails(nodeOfSdc, 1, 256, {});
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    host.prints(rescanSdc, {});
    host.signalMilliseconds = 3500;
    host.errnoOfPauses = 0;
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), 0);
    const Lines calls = host.calls();
    EXPECT_EQ(Lines(calls.begin() + 2, calls.begin() + 6),
              lines({"sleep 5", "sleep 1", "sleep 1", "runner with a log"}));
    EXPECT_EQ(host.clockMilliseconds, 5500);
}
