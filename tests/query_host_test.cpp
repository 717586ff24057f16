// The example host with a framework of its own, as a process.
#include "tests/mock_machine.h"
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::HasSubstr;
using testing::Not;
using tests::Ended;
using tests::Process;

namespace {

class QueryHost : public testing::Test {
protected:
    // The script writes a line for each run.
    void lvdisplay(const std::string& body) const
    {
        tools.addScript("lvdisplay", "echo run >> " + work.path() + "/runs\n" + body);
    }

    Ended ask(const std::string& paths) const
    {
        Process process(QUERY_HOST, {});
        return process.reads(paths).sees(tools.path(), "/usr/sbin").run();
    }

    tests::TemporaryFolder tools;
    tests::TemporaryFolder work;
};

std::string tenThousandNodes()
{
    std::string paths;
    for (int node = 1; node <= 10000; ++node) {
        paths += "/dev/mapper/node" + std::to_string(node) + "\n";
    }
    return paths;
}

long countOf(const std::string& text, const std::string& ending)
{
    long count = 0;
    for (std::size_t at = text.find(ending); at != std::string::npos; at = text.find(ending, at + 1)) {
        ++count;
    }
    return count;
}

}  // namespace

TEST_F(QueryHost, AsksAboutTenThousandPathsWithOneRunOfTheTool)
{
    lvdisplay("");
    const Ended ended = ask(tenThousandNodes());
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(countOf(ended.output, "\n"), 10000);
    EXPECT_THAT(ended.output, HasSubstr("\n16 device-mapper /dev/mapper/node10000\n"));
    EXPECT_THAT(ended.output, Not(HasSubstr("unsure")));
    EXPECT_EQ(work.contentOf("runs"), "run\n");
}

TEST_F(QueryHost, SaysOfEachAnswerThatItIsUnsureWhenTheToolFails)
{
    lvdisplay("echo '  LV Name node7'\necho '  VG Name x'\nexit 5\n");
    const Ended ended = ask(tenThousandNodes() + "/dev/sda\n/dev/mapper/x-node7\n");
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(countOf(ended.output, " unsure\n"), 10001);
    EXPECT_THAT(ended.output, HasSubstr("\n2 native /dev/sda\n16 device-mapper /dev/mapper/x-node7 unsure\n"));
    EXPECT_EQ(ended.errors,
              "The answer would be the same for a logical volume, because /sbin/lvdisplay exited with status 5 after "
              "printing 1 volume.\n"
              "The path was printed as a logical volume but is not treated as one, because /sbin/lvdisplay exited with "
              "status 5 after printing 1 volume.\n"
              "The host says: /sbin/lvdisplay failed\n"
              "Unsure or missing answers: 10001\n");
    EXPECT_EQ(work.contentOf("runs"), "run\n");
}

TEST_F(QueryHost, SaysThatTheToolIsMissing)
{
    const Ended ended = ask("/dev/mapper/mpatha\n");
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.output, "16 device-mapper /dev/mapper/mpatha unsure\n");
    EXPECT_EQ(ended.errors,
              "The answer would be the same for a logical volume, because /sbin/lvdisplay could not be run.\n"
              "The host says: cannot run /sbin/lvdisplay: No such file or directory\n"
              "Unsure or missing answers: 1\n");
}

TEST_F(QueryHost, RefusesALogicalVolumeThatTheToolPrints)
{
    lvdisplay("echo '  LV Name lvol1'\necho '  VG Name vg00'\n");
    const Ended ended = ask("/dev/mapper/vg00-lvol1\n/dev/emcpowera\n");
    EXPECT_EQ(ended.output, "0 none /dev/mapper/vg00-lvol1\n16 powerpath /dev/emcpowera\n");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(QueryHost, SaysWhichClaimsTheKernelContradicts)
{
    lvdisplay("exit 5");
    tests::MockMachine machine;
    machine.disk("sda").disk("sdb").disk("sdc").partition("sdc", "sdc2", 2);
    machine.mapped("dm-0", "mpatha", "mpath-36001", {"sda", "sdb"});
    machine.mapped("dm-1", "mpatha-part1", "part1-mpath-36001", {"dm-0"});
    machine.mapped("dm-2", "vg00-lvol1", "LVM-AbCd", {"sdc2"});
    Process process = machine.process(QUERY_HOST, {"--kernel"});
    process.sees(tools.path(), "/usr/sbin");
    const Ended ended = process
                            .reads(
                                "/dev/sda\n/dev/sdc2\n/dev/mapper/mpatha\n/dev/mapper/mpatha-part1\n"
                                "/dev/mapper/vg00-lvol1\n/dev/mapper/none\n")
                            .run();
    EXPECT_EQ(ended.output,
              "2 native /dev/sda (the kernel: SCSI disk, path of /dev/mapper/mpatha)\n"
              "2 native /dev/sdc2\n"
              "16 device-mapper /dev/mapper/mpatha unsure\n"
              "16 device-mapper /dev/mapper/mpatha-part1 unsure\n"
              "16 device-mapper /dev/mapper/vg00-lvol1 unsure (the kernel: logical volume)\n"
              "16 device-mapper /dev/mapper/none unsure\n");
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(work.contentOf("runs"), "run\n");
}
