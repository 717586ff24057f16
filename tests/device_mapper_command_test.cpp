// The command, the plug-in and the bundled runner together, on device-mapper paths. The tool that lists logical volumes
// is a script that only the command sees.
#include "tests/mock_machine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <algorithm>
#include <string>

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using tests::Ended;
using tests::Process;

namespace {

class DeviceMapperCommand : public testing::Test {
protected:
    // The tool prints `listing`, leaves a line in "runs", and ends with `status`.
    void lvdisplay(const std::string& listing, int status = 0)
    {
        tools.addFile("listing", listing);
        tools.addFile("runs", "");
        tools.addScript("lvdisplay", "echo \"run $# $LC_ALL\" >> /usr/sbin/runs\n/bin/cat /usr/sbin/listing\nexit " +
                                         std::to_string(status) + "\n");
    }
    void lvdisplayWithOneVolume()
    {
        lvdisplay(
            "  --- Logical volume ---\n  LV Path                /dev/vg00/lvol1\n"
            "  LV Name                lvol1\n  VG Name                vg00\n   \n");
    }
    long runs() const
    {
        const std::string text = tools.contentOf("runs");
        return std::count(text.begin(), text.end(), '\n');
    }

    Ended kivclaim(std::vector<std::string> arguments, const std::string& input = "") const
    {
        return Process(KIVCLAIM_COMMAND, std::move(arguments)).reads(input).sees(tools.path(), "/usr/sbin").run();
    }

    Ended onMachineWithMaps(int maps, std::vector<std::string> arguments) const
    {
        tests::MockMachine machine;
        for (int i = 0; i < maps; ++i) {
            const std::string number = std::to_string(i);
            machine.mappedWithoutName("dm-" + number, "mpath" + number + "-x", "mpath-" + number);
        }
        // umockdev waits for the disk that holds each file that it makes; here is none.
        return machine.process(KIVCLAIM_COMMAND, std::move(arguments))
            .environment("TMPDIR", "/dev/shm")
            .sees(tools.path(), "/usr/sbin")
            .run();
    }

    tests::TemporaryFolder tools;
};

bool kernelIsOfFamily12()
{
    utsname system{};
    uname(&system);
    return std::atoi(system.release) >= 4;
}

}  // namespace

TEST_F(DeviceMapperCommand, RefusesLogicalVolumes)
{
    lvdisplayWithOneVolume();
    const Ended ended = kivclaim({"claim", "/dev/mapper/mpatha", "/dev/mapper/vg00-lvol1"});
    EXPECT_EQ(ended.output, "16 device-mapper /dev/mapper/mpatha\n0 none /dev/mapper/vg00-lvol1\n");
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(tools.contentOf("runs"), "run 0 C\n") << "once, without arguments, in no other language";
}

TEST_F(DeviceMapperCommand, ClaimsEverythingWhenTheToolIsMissing)
{
    const Ended ended = kivclaim({"claim", "--trace", "2", "/dev/mapper/vg00-lvol1"});
    EXPECT_EQ(ended.output, "16 device-mapper /dev/mapper/vg00-lvol1\n");
    EXPECT_THAT(ended.errors, HasSubstr("No such file or directory"));
    EXPECT_THAT(ended.errors, HasSubstr("CKivDeviceMapperClaim::createLvmDeviceNamesList: Unknown exception caught\n"));
}

TEST_F(DeviceMapperCommand, ClaimsEverythingWhenTheToolFailsAndShowsTheRun)
{
    lvdisplay("  half a list\n", 5);
    const Ended ended = kivclaim({"claim", "--trace", "6", "/dev/mapper/vg00-lvol1"});
    EXPECT_EQ(ended.output, "16 device-mapper /dev/mapper/vg00-lvol1\n");
    EXPECT_THAT(ended.errors, HasSubstr("createLvmDeviceNamesList: Command:[/sbin/lvdisplay]\n"));
    EXPECT_THAT(ended.errors, HasSubstr("getExecPipeWaitPidStatus: exited, status= [5]\n"));
    EXPECT_THAT(ended.errors, HasSubstr("lvdisplay command execution failed. Status:[5]\n"));
    EXPECT_THAT(ended.errors, HasSubstr("createLvmDeviceNamesList: Output:[  half a list]\n"));
}

TEST_F(DeviceMapperCommand, NamesPartitionsByTheRunningKernel)
{
    ASSERT_TRUE(kernelIsOfFamily12()) << "this test is written for kernels since 4.0";
    lvdisplayWithOneVolume();
    EXPECT_EQ(kivclaim({"partition", "/dev/mapper/mpatha", "1"}).output, "/dev/mapper/mpatha-part1\n");
    EXPECT_EQ(kivclaim({"whole", "/dev/mapper/mpatha-part3", "/dev/mapper/mpatha"}).output,
              "/dev/mapper/mpatha 3\n/dev/mapper/mpatha 0\n");
    EXPECT_EQ(kivclaim({"is-partition", "/dev/mapper/mpatha-part3"}).output, "yes /dev/mapper/mpatha-part3\n");
}

TEST_F(DeviceMapperCommand, NamesPartitionsByTheKernelThatItIsTold)
{
    lvdisplayWithOneVolume();
    const Ended ended = Process(KIVCLAIM_COMMAND, {"partition", "/dev/mapper/mpatha", "1", "--trace", "3"})
                            .environment("LD_PRELOAD", KIVCLAIM_TOLD_RELEASE)
                            .environment("KIVCLAIM_KERNEL_RELEASE", "2.6.32")
                            .sees(tools.path(), "/usr/sbin")
                            .run();
    EXPECT_EQ(ended.output, "/dev/mapper/mpatha_part1\n");
    EXPECT_THAT(ended.errors, HasSubstr("INFO: getSuSEVersion: SuSE version 11\n"));
}

TEST_F(DeviceMapperCommand, ExplainsAClaim)
{
    lvdisplayWithOneVolume();
    const Ended ended = kivclaim({"explain", "/dev/mapper/mpatha"});
    EXPECT_THAT(
        ended.output,
        AllOf(HasSubstr("CKivPowerPathClaim (powerpath) answers 0, not claimed\n"),
              HasSubstr("CKivDeviceMapperClaim (device-mapper) answers 16\n"),
              HasSubstr("Claimed by device-mapper, level 16: the only module that claims it.\n"),
              HasSubstr("isLinuxLogicalVolume: The device path:[/dev/mapper/mpatha] is not logical volume.\n")));
    EXPECT_EQ(runs(), 1) << "request and explanation see the same machine";
}

TEST_F(DeviceMapperCommand, ExplainsATie)
{
    lvdisplayWithOneVolume();
    EXPECT_THAT(kivclaim({"explain", "/dev/mapper/dev/emcpowera"}).output,
                HasSubstr("Claimed by powerpath, level 16: a tie: of the modules with the highest level, the one asked "
                          "first.\n"));
}

TEST_F(DeviceMapperCommand, RunsTheToolOnceForAllArgumentsWhileThereIsNoVolume)
{
    lvdisplay("");
    std::vector<std::string> arguments = {"claim"};
    for (int i = 1; i < 100; ++i) {
        arguments.push_back("/dev/mapper/node00" + std::to_string(i));
    }
    const Ended ended = kivclaim(arguments);
    EXPECT_EQ(std::count(ended.output.begin(), ended.output.end(), '\n'), 99);
    EXPECT_EQ(runs(), 1);
    kivclaim({"--no-snapshot", "claim", "/dev/mapper/a", "/dev/mapper/b", "/dev/mapper/c"});
    EXPECT_EQ(runs(), 4) << "anew for every question, when that is wanted";
}

TEST_F(DeviceMapperCommand, RunsTheToolOnceForPathsFromStandardInput)
{
    lvdisplay("");
    const std::string paths = "/dev/mapper/a\n/dev/mapper/b\n/dev/mapper/c\n";
    EXPECT_EQ(kivclaim({"claim", "-"}, paths).status, 0);
    EXPECT_EQ(runs(), 1);
    EXPECT_EQ(kivclaim({"whole", "-"}, paths).status, 0);
    EXPECT_EQ(runs(), 2);
    EXPECT_EQ(kivclaim({"--no-snapshot", "claim", "-"}, paths).status, 0);
    EXPECT_EQ(runs(), 5);
}

TEST_F(DeviceMapperCommand, AFailureIsRememberedForPathsFromStandardInputAsWell)
{
    lvdisplay("", 5);
    EXPECT_EQ(kivclaim({"claim", "-"}, "/dev/mapper/a\n/dev/mapper/b\n").output,
              "16 device-mapper /dev/mapper/a\n16 device-mapper /dev/mapper/b\n");
    EXPECT_EQ(runs(), 1);
}

TEST_F(DeviceMapperCommand, AHostileNameReachesNoShell)
{
    lvdisplayWithOneVolume();
    const std::string name = "/dev/mapper/$(touch /usr/sbin/owned);`touch /usr/sbin/owned`";
    EXPECT_EQ(kivclaim({"claim", name}).output, "16 device-mapper " + name + "\n");
    EXPECT_EQ(tools.contentOf("owned"), "");
    EXPECT_EQ(runs(), 1);
}

TEST_F(DeviceMapperCommand, ListsTwoThousandDevicesWithOneRunOfTheTool)
{
    lvdisplay("");
    const Ended ended = onMachineWithMaps(2000, {"list", "-n"});
    EXPECT_EQ(std::count(ended.output.begin(), ended.output.end(), '\n'), 2000) << ended.errors;
    // Whether a heading that is not shown makes its column wider is up to the release of libsmartcols.
    EXPECT_THAT(ended.output, ContainsRegex("/dev/mapper/mpath1999-x device-mapper +16"));
    EXPECT_EQ(runs(), 1);
}

TEST_F(DeviceMapperCommand, AuditsHundredsOfDevicesWithOneRunOfTheTool)
{
    lvdisplay("");
    const Ended ended = onMachineWithMaps(500, {"audit"});
    EXPECT_THAT(ended.output, HasSubstr("\n500 devices: 500 agree, ")) << ended.errors;
    EXPECT_EQ(runs(), 1);
}
