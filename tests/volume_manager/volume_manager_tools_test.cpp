// What the tools of the volume manager for tests print and do, run as programs.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

const std::string ztkivadm = KIVCLAIM_ZTKIVADM;
const std::string ztdisk = KIVCLAIM_ZTDISK;

struct Result {
    int exitCode;
    std::string output;
};

bool operator==(const Result& a, const Result& b)
{
    return a.exitCode == b.exitCode && a.output == b.output;
}

void PrintTo(const Result& result, std::ostream* stream)
{
    *stream << "exit code " << result.exitCode << ", output [" << result.output << "]";
}

class VolumeManagerTools : public testing::Test {
protected:
    void SetUp() override
    {
        stateFile = testing::TempDir() + "volume-manager-XXXXXX";
        close(mkstemp(stateFile.data()));
        setenv("KIVCLAIM_VM_STATE", stateFile.c_str(), 1);
    }
    void TearDown() override { std::remove(stateFile.c_str()); }

    // Two nodes, and lines for the behaviour.
    void given(const std::string& behaviour)
    {
        std::ofstream(stateFile) << "path kiv0_1 sdc DISABLED PRIMARY\n"
                                    "path kiv0_1 sdd ENABLED(A) SECONDARY\n"
                                    "path kiv0_22 sde ENABLED PRIMARY\n"
                                 << behaviour;
    }
    std::string state() const
    {
        std::ostringstream text;
        text << std::ifstream(stateFile).rdbuf();
        return text.str();
    }
    static Result run(const std::string& command)
    {
        FILE* const pipe = popen((command + " 2>/dev/null").c_str(), "r");
        Result result{-1, ""};
        for (int byte = std::fgetc(pipe); byte != EOF; byte = std::fgetc(pipe)) {
            result.output += static_cast<char>(byte);
        }
        result.exitCode = WEXITSTATUS(pclose(pipe));
        return result;
    }
    static Result node(const std::string& disk) { return run(ztkivadm + "   getkivnode  nodename=" + disk); }
    static Result paths(const std::string& name) { return run(ztkivadm + "   getsubpaths  kivnodename=" + name); }

    std::string stateFile;
    const Result failed{1, ""};
    const Result done{0, ""};
    const Result kiv0_1{0,
                        "NAME      STATE      PATHS\n"
                        "--------------------------\n"
                        "kiv0_1    ENABLED    2\n"};
};

}  // namespace

TEST_F(VolumeManagerTools, ANodeIsPrintedAsATable)
{
    given("");
    EXPECT_EQ(node("sdc"), kiv0_1);
    EXPECT_EQ(node("sdd"), kiv0_1);
    EXPECT_EQ(node("sde"), (Result{0,
                                   "NAME       STATE      PATHS\n"
                                   "---------------------------\n"
                                   "kiv0_22    ENABLED    1\n"}));
    EXPECT_EQ(node("sd"), failed);
    EXPECT_EQ(node(""), failed);
}

TEST_F(VolumeManagerTools, ThePathsOfANodeArePrintedAsATableInTheOrderOfTheFile)
{
    given("");
    EXPECT_EQ(paths("kiv0_1"), (Result{0,
                                       "NAME    STATE         TYPE         NODE\n"
                                       "---------------------------------------\n"
                                       "sdc     DISABLED      PRIMARY      kiv0_1\n"
                                       "sdd     ENABLED(A)    SECONDARY    kiv0_1\n"}));
    EXPECT_EQ(paths("kiv0_2"), failed);
    EXPECT_EQ(paths(""), failed);
}

TEST_F(VolumeManagerTools, ARemovedNodeIsLostUntilAScanOfOneOfItsDisksOrOfAll)
{
    given("");
    EXPECT_EQ(run(ztdisk + "   rm kiv0_1"), done);
    EXPECT_EQ(node("sdc"), failed);
    EXPECT_EQ(paths("kiv0_1"), failed);
    EXPECT_EQ(run(ztdisk + "   rm kiv0_1"), failed) << "it is lost already";
    EXPECT_EQ(run(ztdisk + "   scandisks  device=sde,sdcc"), done);
    EXPECT_EQ(node("sdc"), failed);
    EXPECT_EQ(run(ztdisk + "   scandisks  device=sde,sdd"), done);
    EXPECT_EQ(node("sdc"), kiv0_1);
    EXPECT_EQ(run(ztdisk + "   rm kiv0_1"), done);
    EXPECT_EQ(run(ztdisk + "   scandisks "), done);
    EXPECT_EQ(node("sdc"), kiv0_1);
    EXPECT_EQ(run(ztdisk + "   rm "), failed);
}

TEST_F(VolumeManagerTools, ANodeGivenAsLostIsNotFound)
{
    given("lost kiv0_1\n");
    EXPECT_EQ(node("sdc"), failed);
    EXPECT_EQ(node("sde").exitCode, 0);
}

TEST_F(VolumeManagerTools, ACommandThatIsToFailPrintsItsTextAndChangesNothing)
{
    given("fail rm 7 the disk is busy\nfail getsubpaths 9\n");
    EXPECT_EQ(run(ztdisk + " rm kiv0_1"), (Result{7, "the disk is busy\n"}));
    EXPECT_EQ(paths("kiv0_1"), (Result{9, ""}));
    EXPECT_EQ(node("sdc"), kiv0_1);
}

TEST_F(VolumeManagerTools, AFailureGivenForAStarFailsEveryCommand)
{
    given("fail * 5\n");
    EXPECT_EQ(node("sdc"), (Result{5, ""}));
    EXPECT_EQ(run(ztdisk + " scandisks"), (Result{5, ""}));
}

TEST_F(VolumeManagerTools, AWarningComesBeforeTheHeaderAndGarbageInPlaceOfTheTable)
{
    given("warn getkivnode the daemon is slow\ngarbage getsubpaths %s what?\n");
    EXPECT_EQ(node("sdc"), (Result{0, "the daemon is slow\n" + kiv0_1.output}));
    EXPECT_EQ(paths("kiv0_1"), (Result{0, "%s what?\n"}));
}

TEST_F(VolumeManagerTools, ABehaviourGivenForOnceAppliesToTheNextSuchCommandOnly)
{
    given("once fail getkivnode 3\nonce fail getkivnode 4 again\n");
    EXPECT_EQ(paths("kiv0_1").exitCode, 0);
    EXPECT_EQ(node("sdc").exitCode, 4) << "both are for the next query";
    EXPECT_EQ(node("sdc"), kiv0_1);
}

TEST_F(VolumeManagerTools, AnAnswerChangesBetweenTwoCalls)
{
    given("then once fail getkivnode 3\nthen path kiv0_1 sdc ENABLED PRIMARY\nthen lost kiv0_22\n");
    EXPECT_EQ(node("sdc"), kiv0_1);
    EXPECT_EQ(node("sdc"), (Result{3, ""}));
    EXPECT_EQ(paths("kiv0_1"), (Result{0,
                                       "NAME    STATE         TYPE         NODE\n"
                                       "---------------------------------------\n"
                                       "sdc     ENABLED       PRIMARY      kiv0_1\n"
                                       "sdd     ENABLED(A)    SECONDARY    kiv0_1\n"}));
    EXPECT_EQ(node("sde"), failed);
}

TEST_F(VolumeManagerTools, TheStateFileKeepsWhatWasNotUsed)
{
    given("# a remark\nwarn rm slow\n");
    const std::string before = state();
    EXPECT_EQ(node("sdc"), kiv0_1);
    EXPECT_EQ(state(), before);
    EXPECT_EQ(run(ztdisk + " rm kiv0_22"), (Result{0, "slow\n"}));
    EXPECT_EQ(state(), before + "lost kiv0_22\n");
}

TEST_F(VolumeManagerTools, AHangingCommandPrintsItsAnswerAndHasToBeKilled)
{
    given("once hang getkivnode\n");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execl(ztkivadm.c_str(), "ztkivadm", "getkivnode", "nodename=sdc", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(ends[1]);
    std::string output;
    char byte = 0;
    while (output.size() < kiv0_1.output.size() && read(ends[0], &byte, 1) == 1) {
        output += byte;
    }
    EXPECT_EQ(output, kiv0_1.output);
    EXPECT_EQ(kill(child, SIGTERM), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status)) << status;
    close(ends[0]);
    EXPECT_EQ(node("sdc"), kiv0_1) << "the state file was not kept locked";
}

TEST_F(VolumeManagerTools, AnUnknownCommandAndAMissingStateFileAreErrors)
{
    given("");
    EXPECT_EQ(run(ztkivadm + " rm kiv0_1"), (Result{2, ""}));
    EXPECT_EQ(run(ztdisk), (Result{2, ""}));
    EXPECT_EQ(run("KIVCLAIM_VM_STATE=/nowhere/at/all " + ztdisk + " scandisks"), (Result{3, ""}));
    EXPECT_EQ(run("env -u KIVCLAIM_VM_STATE " + ztdisk + " scandisks"), (Result{2, ""}));
}
