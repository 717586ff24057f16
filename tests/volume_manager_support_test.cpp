// The gateway to the volume manager's multipathing tools: availability, commands, records and exceptions.
#include "tests/volume_manager_fixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

using recording::Host;
using recording::lines;
using recording::Lines;
using ztfi_pdk_4_4::EFiExecPipe;

// Availability.

TEST_F(VolumeManagerSupport, ACommandIsAvailableWhenTheJoinedPathMayBeExecuted)
{
    host.executable("/usr/sbin/ztkivadm");
    EXPECT_TRUE(support.isCommandAvailable("/usr/sbin/", "ztkivadm  "));
    EXPECT_TRUE(support.isCommandAvailable(" \t\r\n/usr/sbin/zt", "kivadm\n\r\t "));
    EXPECT_TRUE(support.isCommandAvailable("", "/usr/sbin/ztkivadm"));
    EXPECT_TRUE(support.isCommandAvailable("/usr/sbin/ztkivadm", ""));
    EXPECT_EQ(host.effectsInside(), lines({"access /usr/sbin/ztkivadm: yes", "access /usr/sbin/ztkivadm: yes",
                                           "access /usr/sbin/ztkivadm: yes", "access /usr/sbin/ztkivadm: yes"}));
}

TEST_F(VolumeManagerSupport, APathWithoutExecutePermissionIsNotAvailable)
{
    host.executable("/usr/sbin/other");
    EXPECT_FALSE(support.isCommandAvailable("/usr/sbin/", "ztkivadm  "));
    EXPECT_FALSE(support.isCommandAvailable(" ", "\n"));
    EXPECT_FALSE(support.isCommandAvailable("/usr/ sbin/", "other"));
    EXPECT_FALSE(support.isCommandAvailable("~/", "other~"));
    EXPECT_EQ(host.effectsInside(), lines({"access /usr/sbin/ztkivadm: no", "access : no",
                                           "access /usr/ sbin/other: no", "access ~/other~: no"}))
        << "blanks inside stay";
}

TEST_F(VolumeManagerSupport, ACommandWithANulIsNotAvailable)
{
    host.executable("/usr/sbin/ztkivadm");
    EXPECT_FALSE(support.isCommandAvailable({"/usr/sbin/ztkivadm\0", 19}, "x"));
    EXPECT_EQ(host.calls(), lines({}));
}

TEST_F(VolumeManagerSupport, TheMultipathingToolIsLookedUpEveryTime)
{
    EXPECT_FALSE(support.isZtKIVInstalled());
    host.executable("/usr/sbin/ztkivadm");
    EXPECT_TRUE(support.isZtKIVInstalled());
    EXPECT_EQ(host.calls(), lines({"access /usr/sbin/ztkivadm: no", "access /usr/sbin/ztkivadm: yes"}));
}

// The command runner.

TEST_F(VolumeManagerSupport, ACommandThatPrintsNothingAndSucceedsIsMentionedOnlyOnce)
{
    host.prints("/bin/x  -y", {});
    EXPECT_EQ(support.executeCommand("/bin/x  -y", output), 0);
    EXPECT_EQ(output, lines({}));
    EXPECT_EQ(host.effectsWithoutLineNumbers(),
              lines({"6 Entering Function executeCommand [kiv_nativepath_claim.cpp]",
                     "3 ExecuteCommand command: /bin/x  -y", "runner with a log", "run [/bin/x  -y]",
                     "6 Exiting Function executeCommand [kiv_nativepath_claim.cpp]"}));
}

TEST_F(VolumeManagerSupport, OutputLinesRunTogetherInTheMessages)
{
    host.prints("/bin/x", lines({"a", "b"}));
    EXPECT_EQ(support.executeCommand("/bin/x", output), 0);
    EXPECT_EQ(output, lines({"a", "b"}));
    EXPECT_EQ(host.effectsInside(), lines({"3 ExecuteCommand command: /bin/x", "runner with a log", "run [/bin/x]",
                                           "6 ExecuteCommand passed with output 'ab'"}));
    host.forget();
    host.fails("/bin/x", 3, 768, lines({"a", "b"}));
    EXPECT_EQ(support.executeCommand("/bin/x", output), 3);
    EXPECT_EQ(output, lines({"a", "b"})) << "the lines of a failed command stay";
    EXPECT_EQ(host.effectsInside(), lines({"3 ExecuteCommand command: /bin/x", "runner with a log", "run [/bin/x]",
                                           "2 Warning - failed with message='ab' and error no '3'."}));
}

TEST_F(VolumeManagerSupport, OneEmptyLineIsStillOutput)
{
    host.prints("/bin/x", lines({""}));
    EXPECT_EQ(support.executeCommand("/bin/x", output), 0);
    EXPECT_EQ(host.trace(6)[1], "ExecuteCommand passed with output ''");
}

TEST_F(VolumeManagerSupport, AFailureWithoutOutputAndANegativeResultArePassedOn)
{
    host.fails("/bin/x", 1, 256, {});
    EXPECT_EQ(support.executeCommand("/bin/x", output), 1);
    EXPECT_EQ(host.trace(2), lines({"Warning - failed with message='' and error no '1'."}));
    host.forget();
    host.fails("/bin/x", -7, 0, lines({"100% %s"}));
    EXPECT_EQ(support.executeCommand("/bin/x", output), -7);
    EXPECT_EQ(host.trace(2), lines({"Warning - failed with message='100% %s' and error no '-7'."}));
}

TEST_F(VolumeManagerSupport, ARunnersExceptionAnswersOneAndKeepsTheLinesPrintedBefore)
{
    host.throws(
        "/bin/x",
        [] {
            throw EFiExecPipe{"secret", L"secret", 13, 256};
        },
        lines({"half"}));
    EXPECT_EQ(support.executeCommand("/bin/x", output), 1);
    EXPECT_EQ(output, lines({"half"}));
    EXPECT_EQ(
        host.effectsWithoutLineNumbers(),
        lines({"6 Entering Function executeCommand [kiv_nativepath_claim.cpp]", "3 ExecuteCommand command: /bin/x",
               "runner with a log", "run [/bin/x]", "1 ExecuteCommand - exception thrown in command execution.",
               "6 Exiting Function executeCommand [kiv_nativepath_claim.cpp]"}));
}

TEST_F(VolumeManagerSupport, EveryOtherExceptionPassesThroughTheRunner)
{
    host.throws(
        "/bin/x", [] { throw std::runtime_error("of the host"); }, lines({"half"}));
    EXPECT_THROW(support.executeCommand("/bin/x", output), std::runtime_error);
    EXPECT_EQ(output, lines({"half"})) << "as the runner left it";
    host.throws("/bin/x", [] { throw 42; });
    EXPECT_THROW(support.executeCommand("/bin/x", output), int);
    EXPECT_EQ(output, lines({}));
    EXPECT_EQ(host.trace(1), lines({}));
}

TEST_F(VolumeManagerSupport, ACommandMayBeOneOfTheLinesThatItsOutputReplaces)
{
    constexpr char command[] = "/bin/x with words enough for the heap";
    host.prints(command, lines({"out"}));
    output = {command};
    EXPECT_EQ(support.executeCommand(output[0].c_str(), output), 0);
    EXPECT_EQ(output, lines({"out"}));
    EXPECT_EQ(host.trace(3), lines({"ExecuteCommand command: /bin/x with words enough for the heap"}));
}

TEST_F(VolumeManagerSupport, NoCommandAtAllAnswersOneAndRunsNothing)
{
    EXPECT_EQ(support.executeCommand(nullptr, output), 1);
    EXPECT_EQ(output, lines({}));
    EXPECT_EQ(host.effectsWithoutLineNumbers(),
              lines({"6 Entering Function executeCommand [kiv_nativepath_claim.cpp]",
                     "6 Exiting Function executeCommand [kiv_nativepath_claim.cpp]"}));
}

TEST_F(VolumeManagerSupport, AnExceptionOfTheRunnersConstructorCountsAsAFailedRun)
{
    host.onRunner = [] { throw EFiExecPipe{"secret", L"secret", 13, 256}; };
    EXPECT_EQ(support.executeCommand("/bin/x", output), 1);
    EXPECT_EQ(output, lines({}));
    EXPECT_EQ(host.effectsInside(),
              lines({"3 ExecuteCommand command: /bin/x", "1 ExecuteCommand - exception thrown in command execution."}));
    host.onRunner = [] { throw std::out_of_range("of the host"); };
    EXPECT_THROW(support.executeCommand("/bin/x", output), std::out_of_range);
    EXPECT_EQ(host.trace(1), lines({"ExecuteCommand - exception thrown in command execution."}));
}

TEST_F(VolumeManagerSupport, AnEFiExecPipeThatTheLogThrowsIsNotTakenForTheRunners)
{
    host.failsTracing("ExecuteCommand", [] { throw EFiExecPipe(); });
    EXPECT_THROW(support.executeCommand("/bin/x", output), EFiExecPipe);
    host.prints("/bin/x", lines({"a"}));
    host.failsTracing("ExecuteCommand passed", [] { throw EFiExecPipe(); });
    EXPECT_THROW(support.executeCommand("/bin/x", output), EFiExecPipe);
    EXPECT_EQ(host.trace(1), lines({}));
}

// Records, exceptions and the log.

TEST_F(VolumeManagerSupport, EntryAndExitOfAnOperationAreRecordedWithTheSameLine)
{
    host.prints(nodeOfSdc, lines({"NAME", "===="})).times(4);
    host.prints(pathsOfNode, lines({"no", "table"}));
    host.prints(rescanAll, {}).times(2);
    host.prints("/usr/sbin/ztdisk   rm ", {});
    host.prints(removeNode, {});
    const auto expectScopeOf = [&](const std::string& operation) {
        const Lines all = host.trace(6);
        const std::string start = "Entering Function " + operation + " [";
        EXPECT_EQ(all.front().substr(0, start.size()), start);
        EXPECT_EQ(all.back(), "Exiting" + all.front().substr(8));
        host.forget();
    };
    support.isZtKIVInstalled();
    expectScopeOf("isZtKIVInstalled");
    support.isCommandAvailable("a", "b");
    expectScopeOf("isCommandAvailable");
    host.prints("/bin/x", {});
    support.executeCommand("/bin/x", output);
    expectScopeOf("executeCommand");
    support.getZtVMDiskForOSDiskHandler("sdc", name);
    expectScopeOf("getZtVMDiskForOSDiskHandler");
    support.getZtVMDiskForOSDiskHandler_Waited("sdc", name);
    expectScopeOf("getZtVMDiskForOSDiskHandler_Waited");
    support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name);
    expectScopeOf("getZtVMDiskForOSDiskHandler_Refreshed");
    support.getOSDiskHandleForZtVMDisk("kiv0_1", name);
    expectScopeOf("getOSDiskHandleForZtVMDisk");
    support.ztvmScanDisks({});
    expectScopeOf("ztvmScanDisks");
    support.removeDisksFromZtVM("kiv0_1");
    expectScopeOf("removeDisksFromZtVM");
}

TEST_F(VolumeManagerSupport, WhatARunnerThrowsPassesThroughEveryOperation)
{
    const auto outOfRange = [] { throw std::out_of_range("of the host"); };
    host.throws(nodeOfSdc, outOfRange).times(3);
    host.throws(pathsOfNode, outOfRange);
    host.throws(rescanAll, outOfRange);
    host.throws(removeNode, outOfRange);
    EXPECT_THROW(support.getZtVMDiskForOSDiskHandler("sdc", name), std::out_of_range);
    EXPECT_EQ(name, "") << "emptied before the query";
    EXPECT_THROW(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), std::out_of_range);
    EXPECT_THROW(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), std::out_of_range);
    EXPECT_THROW(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), std::out_of_range);
    EXPECT_THROW(support.ztvmScanDisks({}), std::out_of_range);
    EXPECT_THROW(support.removeDisksFromZtVM("kiv0_1"), std::out_of_range);
    EXPECT_EQ(host.trace(1), lines({}));
}

TEST_F(VolumeManagerSupport, WhatTheLogThrowsPassesThroughEveryOperation)
{
    const auto query = [&] { support.getZtVMDiskForOSDiskHandler("sdc", name); };
    const auto reverse = [&] { support.getOSDiskHandleForZtVMDisk("kiv0_1", name); };
    const auto refreshed = [&] { support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name); };
    expectThePassageOf("ExecuteCommand command:", query);
    host.prints(nodeOfSdc, lines({"a", "b"}));
    expectThePassageOf("ExecuteCommand passed", query);
    host.fails(nodeOfSdc, 1, 256, {}).times(2);
    expectThePassageOf("Warning - failed with", query);
    expectThePassageOf("CZtKIVSupport::getZtVMDiskForOSDiskHandler :", query);
    host.throws(nodeOfSdc, [] { throw EFiExecPipe(); });
    expectThePassageOf("ExecuteCommand - exception", query);
    host.prints(nodeOfSdc, {});
    expectThePassageOf("Warning - no output", query);
    host.prints(pathsOfNode, lines({"a", "NAME"}));
    expectThePassageOf("Warning - no valid output", reverse);
    host.prints(pathsOfNode, lines({"NAME", "===="}));
    expectThePassageOf("Unable to get", reverse);
    host.fails(removeNode, 1, 256, {});
    expectThePassageOf("Warning - removing", [&] { support.removeDisksFromZtVM("kiv0_1"); });
    host.fails(rescanAll, 1, 256, {});
    expectThePassageOf("CZtKIVSupport::ztvmScanDisks", [&] { support.ztvmScanDisks({}); });
    expectThePassageOf("We will remove", refreshed);
    host.prints(nodeOfSdc, {});
    expectThePassageOf("Obtaining kiv nodes", [&] { support.getZtVMDiskForOSDiskHandler_Waited("sdc", name); });
    EXPECT_EQ(host.calls().back(), "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]") << "no pause after it";
    expectThePassageOf("Entering Function isCommandAvailable", [&] { support.isZtKIVInstalled(); });
}

TEST_F(VolumeManagerSupport, TheAnswerIsEmptiedBeforeEveryQueryAndAfterTheRemoval)
{
    host.failsTracing("Entering Function getZtVMDiskForOSDiskHandler [");
    EXPECT_THROW(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), std::runtime_error);
    EXPECT_EQ(name, "");
    name = "left over";
    EXPECT_THROW(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), std::runtime_error);
    EXPECT_EQ(name, "");
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"}));
    host.prints(removeNode, {});
    host.failsTracing("Entering Function ztvmScanDisks [");
    EXPECT_THROW(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), std::runtime_error);
    EXPECT_EQ(name, "") << "the removed node is no answer";
}

TEST_F(VolumeManagerSupport, TheRunnerHoldsTheLogUntilTheOperationEnds)
{
    std::vector<unsigned int> countAtRecord;
    host.onTrace = [&] { countAtRecord.push_back(host.logCount()); };
    host.prints("/bin/x", lines({"a"}));
    EXPECT_EQ(support.executeCommand("/bin/x", output), 0);
    // Entry, command, outcome, exit; held by the host, the support object, the scope and, at the outcome, the runner.
    EXPECT_EQ(countAtRecord, (std::vector<unsigned int>{3, 3, 4, 3}));
    EXPECT_EQ(host.logCount(), 2U);
}

TEST(VolumeManagerSupportWithoutALog, AnswersTheSame)
{
    Host host;
    CZtKIVSupport support;
    std::string name = "left over";
    Lines output;
    EXPECT_FALSE(support.isZtKIVInstalled());
    host.fails("/bin/x", 3, 768, lines({"a"}));
    EXPECT_EQ(support.executeCommand("/bin/x", output), 3);
    EXPECT_EQ(output, lines({"a"}));
    host.throws("/bin/x", [] { throw EFiExecPipe(); });
    EXPECT_EQ(support.executeCommand("/bin/x", output), 1);
    host.fails(nodeOfSdc, 1, 256, {}).times(9);
    host.prints(rescanSdc, {}).times(4);
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Waited("sdc", name), 1);
    host.fails(rescanAll, 1, 256, {}).times(4);
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), 1);
    EXPECT_EQ(name, "");
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"})).times(2);
    host.fails(removeNode, 1, 256, {});
    host.prints(rescanAll, {});
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", name), 0);
    EXPECT_EQ(name, "kiv0_1");
    host.fails(pathsOfNode, 1, 256, {});
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 1);
    host.prints(pathsOfNode, lines({"NAME"}));
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 1);
    host.prints(pathsOfNode, lines({"warning", "NAME"}));
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 1);
    host.prints(pathsOfNode, lines({"NAME", "====", "sda DISABLED"}));
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 1);
    host.prints(pathsOfNode, lines({"NAME", "====", "sda ENABLED"}));
    EXPECT_EQ(support.getOSDiskHandleForZtVMDisk("kiv0_1", name), 0);
    EXPECT_EQ(name, "sda");
    EXPECT_EQ(host.effects(), host.calls()) << "no record";
    const Lines calls = host.calls();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "runner with a log"), 0);
}
