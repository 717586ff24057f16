// The gateway to the volume manager's multipathing tools.
#include "modules/kiv_nativepath_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>

using recording::Host;
using recording::lines;
using recording::Lines;
using ztfi_pdk_4_4::EFiExecPipe;

namespace {

constexpr char nodeOfSdc[] = "/usr/sbin/ztkivadm   getkivnode  nodename=sdc";
constexpr char pathsOfNode[] = "/usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1";
constexpr char rescanSdc[] = "/usr/sbin/ztdisk   scandisks  device=sdc";
constexpr char rescanAll[] = "/usr/sbin/ztdisk   scandisks ";
constexpr char removeNode[] = "/usr/sbin/ztdisk   rm kiv0_1";

class VolumeManagerSupport : public testing::Test {
protected:
    void SetUp() override { support.registerTraceLog(host.log()); }
    // Whatever happened, nobody but the host and the support object holds the log.
    void TearDown() override { EXPECT_EQ(host.logCount(), 2U); }

    // Looks the node of sdc up in a table of these rows; the result must be 0.
    std::string nodeIn(const Lines& rows)
    {
        Lines table = lines({"NAME   STATE", "============"});
        table.insert(table.end(), rows.begin(), rows.end());
        host.prints(nodeOfSdc, table);
        std::string node = "left over";
        EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", node), 0);
        return node;
    }

    // Looks for the path of kiv0_1 in a table of these rows; the result must go with the answer.
    std::string pathIn(const Lines& rows)
    {
        Lines table = lines({"NAME STATE TYPE", "==============="});
        table.insert(table.end(), rows.begin(), rows.end());
        host.prints(pathsOfNode, table);
        std::string path = "left over";
        const int result = support.getOSDiskHandleForZtVMDisk("kiv0_1", path);
        EXPECT_EQ(result, path.empty() ? 1 : 0);
        return path;
    }

    // The result of the operation, run while the record that begins with `text` cannot be written.
    void expectThePassageOf(const std::string& text, const std::function<void()>& operation)
    {
        host.failsTracing(text);
        EXPECT_THROW(operation(), std::runtime_error) << text;
        EXPECT_EQ(host.logCount(), 2U) << text;
        host.failsTracing("");
    }

    Host host;
    CZtKIVSupport support;
    Lines output = lines({"left over"});
    std::string name = "left over";
};

void append(Lines& all, const Lines& more)
{
    all.insert(all.end(), more.begin(), more.end());
}

}  // namespace

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

TEST_F(VolumeManagerSupport, TheMultipathingToolIsLookedUpAnewEveryTime)
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

TEST_F(VolumeManagerSupport, OneEmptyLineIsOutputAllTheSame)
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

TEST_F(VolumeManagerSupport, ACommandMayStandInTheLinesThatItsOutputReplaces)
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

TEST_F(VolumeManagerSupport, AnExceptionOfTheRunnersConstructorIsOneOfItsRuns)
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

TEST_F(VolumeManagerSupport, AnEFiExecPipeOfTheLogIsNoneOfTheRunner)
{
    host.failsTracing("ExecuteCommand", [] { throw EFiExecPipe(); });
    EXPECT_THROW(support.executeCommand("/bin/x", output), EFiExecPipe);
    host.prints("/bin/x", lines({"a"}));
    host.failsTracing("ExecuteCommand passed", [] { throw EFiExecPipe(); });
    EXPECT_THROW(support.executeCommand("/bin/x", output), EFiExecPipe);
    EXPECT_EQ(host.trace(1), lines({}));
}

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

TEST_F(VolumeManagerSupport, ANodeRowMayHaveTabsLineEndsAndBlanksAndMayStandBehindBlankRows)
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

TEST_F(VolumeManagerSupport, OneStringMayBeDiskAndAnswer)
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

TEST_F(VolumeManagerSupport, NobodySeesThatARemovalFailed)
{
    host.fails(removeNode, 4, 1024, lines({"busy"}));
    EXPECT_EQ(support.removeDisksFromZtVM("kiv0_1"), 0);
    EXPECT_EQ(host.trace(2), lines({"Warning - failed with message='busy' and error no '4'.",
                                    "Warning - removing disk from ztvm db is failed."}));
    host.throws(removeNode, [] { throw EFiExecPipe(); });
    EXPECT_EQ(support.removeDisksFromZtVM("kiv0_1"), 0);
    EXPECT_EQ(host.trace(2).back(), "Warning - removing disk from ztvm db is failed.");
}

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

TEST_F(VolumeManagerSupport, TheRefreshedFormRemovesTheNodeAndFindsItAnew)
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

TEST_F(VolumeManagerSupport, WhatASignalLeavesOfAPauseIsSleptAsWell)
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

TEST_F(VolumeManagerSupport, WhatASignalLeavesOfARefreshedPauseIsSleptAsWell)
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

TEST_F(VolumeManagerSupport, ASleepThatLeavesEverythingWithoutASignalIsCalledOnce)
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
    EXPECT_EQ(host.calls().back(), "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]") << "no pause behind it";
    expectThePassageOf("Entering Function isCommandAvailable", [&] { support.isZtKIVInstalled(); });
}

TEST_F(VolumeManagerSupport, TheAnswerIsEmptiedBeforeEveryQueryAndBehindTheRemoval)
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
