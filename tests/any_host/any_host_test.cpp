// The same scenarios on every kind of host: the bundled one, a second one that shares no code with it, and a process
// that has the framework's operations itself and opens the plug-in while it runs. The tools are scripts, and a volume
// manager, that only the asking program sees.
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

using testing::AllOf;
using testing::Contains;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tests::Ended;
using tests::Process;

namespace {

using Lines = std::vector<std::string>;

struct HostKind {
    const char* name;
    const char* program;
    const char* plugin;          // what the program opens; null when it is linked with it
    const char* runnersRecords;  // how a record of the host's own runner begins
};

constexpr HostKind hostKinds[] = {
    {"OnBundledHost", ON_BUNDLED_HOST, nullptr, "6 Running [|6 Finished [|2 The command [|2 Cannot run ["},
    {"OnSecondHost", ON_SECOND_HOST, nullptr, "6 second host: "},
    {"OpenedWithoutAHostLibrary", FRAMEWORK_PROCESS, PLUGIN_WITHOUT_HOST, "6 second host: "},
    {"OpenedBesideTheBundledHost", FRAMEWORK_PROCESS, ORDINARY_PLUGIN, "6 second host: "},
};

void PrintTo(const HostKind& kind, std::ostream* stream)
{
    *stream << kind.name;
}

bool startsWithOneOf(const std::string& line, const std::string& starts)
{
    std::istringstream stream(starts);
    for (std::string start; std::getline(stream, start, '|');) {
        if (line.compare(0, start.size(), start) == 0) {
            return true;
        }
    }
    return false;
}

bool isScopeRecord(const std::string& line)
{
    return startsWithOneOf(line, "6 Entering Function |6 Exiting Function ");
}

class AnyHost : public testing::TestWithParam<HostKind> {
protected:
    void lvdisplay(const std::string& body) const { tools.addScript("lvdisplay", body); }

    // Disk sdc of node kiv0_1 is used by path sdd. Pauses take no time.
    void volumeManager()
    {
        std::filesystem::copy_file(KIVCLAIM_ZTKIVADM, tools.path() + "/ztkivadm");
        std::filesystem::copy_file(KIVCLAIM_ZTDISK, tools.path() + "/ztdisk");
        work.addFile("state", "path kiv0_1 sdc ENABLED PRIMARY\npath kiv0_1 sdd ENABLED(A) SECONDARY\n");
        preloaded = KIVCLAIM_INSTANT_SLEEP;
    }

    // Everything that the program printed: records and answers.
    Lines allLines(std::vector<std::string> questions) const
    {
        Process process(GetParam().program, std::move(questions));
        process.sees(tools.path(), "/usr/sbin")
            .environment("PLUGIN", GetParam().plugin != nullptr ? GetParam().plugin : "")
            .environment("LD_PRELOAD", preloaded)
            .environment("KIVCLAIM_SLEEPS", work.path() + "/sleeps")
            .environment("KIVCLAIM_VM_STATE", work.path() + "/state");
        const Ended ended = process.run();
        EXPECT_EQ(ended.status, 0) << ended.errors;
        std::istringstream stream(ended.output);
        Lines lines;
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    // The plug-in's own: without the records of its scopes and of the host's runner.
    Lines ask(std::vector<std::string> questions) const
    {
        Lines lines = allLines(std::move(questions));
        const auto isUnwanted = [](const std::string& line) {
            return isScopeRecord(line) || startsWithOneOf(line, GetParam().runnersRecords);
        };
        lines.erase(std::remove_if(lines.begin(), lines.end(), isUnwanted), lines.end());
        return lines;
    }

    tests::TemporaryFolder tools;
    tests::TemporaryFolder work;
    std::string preloaded;
};

std::string nameOf(const testing::TestParamInfo<HostKind>& info)
{
    return info.param.name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Hosts, AnyHost, testing::ValuesIn(hostKinds), nameOf);

TEST_P(AnyHost, LogicalVolumesAreReadFromTheToolAndRefused)
{
    lvdisplay(R"(printf '  --- Logical volume ---\n  LV Name                lvol1\n  VG Name                vg00\n\n'
printf '  LV Name   /dev/vg01/data\n  VG Name   vg01'
)");
    EXPECT_THAT(
        ask({"claim", "/dev/mapper/vg01-data", "claim", "/dev/mapper/mpatha"}),
        ElementsAre(
            "3 CKivDeviceMapperClaim::isLinuxLogicalVolume: Checking for device:[/dev/mapper/vg01-data]",
            "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Command:[/sbin/lvdisplay]",
            "3 CKivDeviceMapperClaim::createLvmDeviceNamesList: / not found in LV NAME. Now searching for space",
            "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[/dev/mapper/vg00-lvol1]",
            "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[/dev/mapper/vg01-data]",
            "6 CKivDeviceMapperClaim::isLinuxLogicalVolume: The device path:[/dev/mapper/vg01-data] is a logical "
            "volume",
            "3 INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_NONE",
            "claim /dev/mapper/vg01-data: 0",
            "3 CKivDeviceMapperClaim::isLinuxLogicalVolume: Checking for device:[/dev/mapper/mpatha]",
            "6 CKivDeviceMapperClaim::isLinuxLogicalVolume: The device path:[/dev/mapper/mpatha] is not logical "
            "volume.",
            "3 INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY",
            "claim /dev/mapper/mpatha: 16"));
}

TEST_P(AnyHost, AFailedToolIsTracedWithItsStatusAndOutput)
{
    lvdisplay("echo '  half a list'\necho\nexit 5\n");
    EXPECT_THAT(ask({"claim", "/dev/mapper/mpatha"}),
                ElementsAre("3 CKivDeviceMapperClaim::isLinuxLogicalVolume: Checking for device:[/dev/mapper/mpatha]",
                            "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Command:[/sbin/lvdisplay]",
                            "2 CKivDeviceMapperClaim::getExecPipeWaitPidStatus: exited, status= [5]",
                            "1 CKivDeviceMapperClaim::createLvmDeviceNamesList: lvdisplay command execution failed. "
                            "Status:[5]",
                            "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[  half a list]",
                            "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[]",
                            "6 CKivDeviceMapperClaim::isLinuxLogicalVolume: creating LVM device list failed",
                            "3 INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY",
                            "claim /dev/mapper/mpatha: 16"));
}

TEST_P(AnyHost, AToolThatASignalEndsIsTracedWithTheSignal)
{
    lvdisplay("kill -9 $$\n");
    EXPECT_THAT(ask({"claim", "/dev/mapper/mpatha"}),
                AllOf(Contains("2 CKivDeviceMapperClaim::getExecPipeWaitPidStatus: killed by signal [9]"),
                      Contains("claim /dev/mapper/mpatha: 16")));
}

TEST_P(AnyHost, WhatTheRunnerThrowsForAMissingToolIsCaughtInThePlugin)
{
    EXPECT_THAT(ask({"claim", "/dev/mapper/mpatha"}),
                AllOf(Contains("2 CKivDeviceMapperClaim::createLvmDeviceNamesList: Unknown exception caught"),
                      Contains("claim /dev/mapper/mpatha: 16")));
}

TEST_P(AnyHost, ActivePathsAreReadFromTheVolumeManagersTables)
{
    volumeManager();
    const Lines lines = ask({"waited", "/dev/sdc", "active", "/dev/sdc"});
    EXPECT_THAT(lines, AllOf(Contains("6 Got active path [/dev/sdd]."), Contains("waited /dev/sdc: /dev/sdd"),
                             Contains("active /dev/sdc: /dev/sdd")));
    EXPECT_THAT(lines, Contains("3 ExecuteCommand command: /usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1"));
}

TEST_P(AnyHost, WhatTheRunnerThrowsForTheVolumeManagerIsCaughtByItsType)
{
    volumeManager();
    tools.addFile("ztkivadm", "");  // may be executed, and is nothing to run
    const Lines lines = ask({"waited", "/dev/sdc"});
    EXPECT_THAT(lines, AllOf(Contains("1 ExecuteCommand - exception thrown in command execution."),
                             Contains("waited /dev/sdc: /dev/sdc")));
    EXPECT_EQ(work.contentOf("sleeps"), "sleep 5\nsleep 5\nsleep 5\nsleep 5\n") << "the pauses are the plug-in's";
}

TEST_P(AnyHost, AnswersFromNamesAloneNeedNoTool)
{
    EXPECT_THAT(ask({"whole", "/dev/emcpowerb15", "partition", "/dev/sdc", "whole", "/dev/null"}),
                AllOf(Contains("whole /dev/emcpowerb15: /dev/emcpowerb 15"), Contains("partition /dev/sdc: /dev/sdc12"),
                      Contains("whole /dev/null:  0")));
}

TEST_P(AnyHost, EveryEntryRecordHasItsExitRecord)
{
    const Lines lines = allLines({"claim", "/dev/emcpowera"});
    ASSERT_THAT(lines, Not(IsEmpty()));
    EXPECT_EQ(lines.front(), "6 Entering Function claim [109, kiv_claim_manager.cpp]");
    EXPECT_EQ(lines.at(lines.size() - 2), "6 Exiting Function claim [109, kiv_claim_manager.cpp]");
    const auto begin = [&](const std::string& start) {
        return std::count_if(lines.begin(), lines.end(),
                             [&](const std::string& line) { return startsWithOneOf(line, start); });
    };
    EXPECT_EQ(begin("6 Entering Function "), begin("6 Exiting Function "));
}

namespace {

// How the loader bound the symbols of a plug-in that the process opened.
std::string bindings(const char* plugin)
{
    return Process(FRAMEWORK_PROCESS, {"claim", "/dev/emcpowera"})
        .environment("PLUGIN", plugin)
        .environment("LD_DEBUG", "bindings")
        .run()
        .errors;
}

constexpr const char* hostOperations[] = {
    "_ZN12ztfi_pdk_4_411CFiTraceLog5traceE",      "_ZN12ztfi_pdk_4_415CFiExecPipeBase4ExecE",
    "_ZN12ztfi_pdk_4_416CFiExecPipePosixC1Ei",    "_ZN12ztfi_pdk_4_413CFiStringTool8tokenizeE",
    "_ZN12ztfi_pdk_4_413CFiStringTool4trimE",     "_ZN12ztfi_pdk_4_413CFiStringTool4findE",
    "_ZN12ztfi_pdk_4_413CFiStringTool8str2tstrE", "_ZN12ztfi_pdk_4_413CFiStringTool8tstr2strB5cxx11E",
};

}  // namespace

TEST(OpenedPlugin, TakesEveryOperationFromTheProcessThatHasIt)
{
    for (const char* const plugin : {ORDINARY_PLUGIN, PLUGIN_WITHOUT_HOST}) {
        const std::string bound = bindings(plugin);
        for (const std::string operation : hostOperations) {
            const std::string file = std::filesystem::path(plugin).parent_path();
            EXPECT_THAT(bound,
                        ContainsRegex("binding file " + file +
                                      "/libkivclaim[^ ]* \\[0\\] to " FRAMEWORK_PROCESS " \\[0\\]: normal symbol `" +
                                      operation));
        }
    }
}

TEST(OpenedPlugin, BringsTheBundledHostOnlyWhenItIsLinkedWithIt)
{
    EXPECT_THAT(bindings(ORDINARY_PLUGIN), HasSubstr("libztfi_pdk.so.4.4"));
    EXPECT_THAT(bindings(PLUGIN_WITHOUT_HOST), Not(HasSubstr("libztfi_pdk")));
}
