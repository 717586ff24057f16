// `kivclaim list` on machines with other devices than this one.
#include "tests/mock_machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using testing::HasSubstr;
using tests::Ended;

namespace {

class List : public testing::Test {
protected:
    void disk(const std::string& name) { machine.disk(name); }
    void mapped(const std::string& kernelName, const std::string& name) { machine.mapped(kernelName, name, ""); }
    void partitionOf(const std::string& diskName, const std::string& name) { machine.partition(diskName, name, 1); }

    Ended list(std::vector<std::string> arguments)
    {
        return machine.process(KIVCLAIM_COMMAND, std::move(arguments)).environment("LC_ALL", "C").run();
    }

private:
    tests::MockMachine machine;
};

}  // namespace

TEST_F(List, ShowsClaimedDevicesInATable)
{
    disk("xvda");
    disk("emcpowerb");
    disk("emcpowera2");
    disk("emcpowera10");
    disk("emcpowera");
    const Ended ended = list({"list"});
    EXPECT_EQ(ended.output,
              "DEVICE           STACK     LEVEL PART WHOLE\n"
              "/dev/emcpowera   powerpath    16      \n"
              "/dev/emcpowera2  powerpath    16    2 /dev/emcpowera\n"
              "/dev/emcpowera10 powerpath    16   10 /dev/emcpowera\n"
              "/dev/emcpowerb   powerpath    16      \n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(list({}).output, ended.output) << "the default command";
}

TEST_F(List, ShowsUnclaimedDevicesOnRequest)
{
    disk("xvda");
    disk("emcpowera");
    EXPECT_EQ(list({"list", "--all"}).output,
              "DEVICE         STACK     LEVEL PART WHOLE\n"
              "/dev/emcpowera powerpath    16      \n"
              "/dev/xvda      none          0      \n");
}

TEST_F(List, ShowsPartitionsUnderTheirWholeDevice)
{
    disk("emcpowera1");
    disk("emcpowera2");
    disk("emcpowera");
    disk("emcpowerb7");
    EXPECT_EQ(list({"list", "--tree", "-o", "DEVICE,PART"}).output,
              "DEVICE            PART\n"
              "/dev/emcpowera    \n"
              "|-/dev/emcpowera1    1\n"
              "`-/dev/emcpowera2    2\n"
              "/dev/emcpowerb7      7\n");
}

TEST_F(List, ShowsUnclaimedPartitionsUnderTheKernelsWholeDevice)
{
    disk("xvda");
    partitionOf("xvda", "xvda1");
    EXPECT_EQ(list({"list", "--all", "--tree", "-o", "DEVICE,STACK"}).output,
              "DEVICE       STACK\n"
              "/dev/xvda    none\n"
              "`-/dev/xvda1 none\n");
}

TEST_F(List, ShowsABackslashInANameAsItIs)
{
    mapped("dm-0", "my\\\\x20map");  // doubled for umockdev, which reads escape sequences
    EXPECT_EQ(list({"list", "--noheadings", "-o", "DEVICE"}).output, "/dev/mapper/my\\x20map\n");
    EXPECT_EQ(list({"list", "--raw", "-n", "-o", "DEVICE"}).output, "/dev/mapper/my\\x5cx20map\n")
        << "raw columns are words: blanks and backslashes are encoded in them, as lsblk does";
}

TEST_F(List, AcceptsItsOptionsWithoutItsName)
{
    disk("xvda");
    EXPECT_EQ(list({"--all", "--noheadings", "-o", "DEVICE"}).output, "/dev/xvda\n");
}

TEST_F(List, PrintsJson)
{
    disk("emcpowera");
    disk("emcpowera1");
    EXPECT_EQ(list({"list", "--json"}).output,
              "{\n"
              "   \"blockdevices\": [\n"
              "      {\n"
              "         \"device\": \"/dev/emcpowera\",\n"
              "         \"stack\": \"powerpath\",\n"
              "         \"level\": 16,\n"
              "         \"part\": null,\n"
              "         \"whole\": null\n"
              "      },{\n"
              "         \"device\": \"/dev/emcpowera1\",\n"
              "         \"stack\": \"powerpath\",\n"
              "         \"level\": 16,\n"
              "         \"part\": 1,\n"
              "         \"whole\": \"/dev/emcpowera\"\n"
              "      }\n"
              "   ]\n"
              "}\n");
    EXPECT_THAT(list({"list", "--json", "--tree"}).output, HasSubstr("\"children\": ["));
}

TEST_F(List, PrintsRawColumnsWithoutHeadings)
{
    disk("emcpowera1");
    EXPECT_EQ(list({"list", "--raw", "--noheadings", "-o", "device,whole,level"}).output,
              "/dev/emcpowera1 /dev/emcpowera 16\n");
}

TEST_F(List, SaysWhenNoDeviceIsClaimed)
{
    disk("xvda");
    disk("xvdb");
    const Ended ended = list({"list"});
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(
        ended.errors,
        "kivclaim: no stack claims any of the 2 block devices of this machine; 'kivclaim list --all' shows them\n");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(list({"list", "--json"}).output, "{\n   \"blockdevices\": [\n\n   ]\n}\n");
}

TEST_F(List, ShowsDeviceMapperDevicesUnderTheirNames)
{
    mapped("dm-0", "mpatha");
    EXPECT_THAT(list({"list", "--all", "-o", "DEVICE"}).output, HasSubstr("/dev/mapper/mpatha\n"));
}

TEST_F(List, ShowsHundredsOfDevices)
{
    for (int i = 0; i < 500; ++i) {
        disk("emcpowera" + std::to_string(i));
    }
    const Ended ended = list({"list", "--noheadings"});
    EXPECT_EQ(std::count(ended.output.begin(), ended.output.end(), '\n'), 500);
    EXPECT_EQ(ended.status, 0);
}
