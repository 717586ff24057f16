// `kivclaim diff`, and the metrics of `kivclaim audit`.
#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using nlohmann::json;
using testing::HasSubstr;
using tests::Ended;

namespace {

Ended kivclaim(std::vector<std::string> arguments)
{
    return tests::Process(KIVCLAIM_COMMAND, std::move(arguments)).environment("LC_ALL", "C").run();
}

// The changes, each as one text.
std::vector<std::string> changesIn(const Ended& ended)
{
    std::vector<std::string> changes;
    const json all = json::parse(ended.output);
    for (const json& change : all["changes"]) {
        std::string line;
        for (const char* const key : {"change", "device", "fact", "before", "after"}) {
            line +=
                (line.empty() ? "" : "|") + (change[key].is_null() ? std::string() : change[key].get<std::string>());
        }
        changes.push_back(line);
    }
    return changes;
}

class Comparison : public testing::Test {
protected:
    Comparison()
    {
        for (tests::SysfsDirectory* const machine : {&before, &after}) {
            machine->file("kivclaim/commands/sbin/lvdisplay/output", "");
            machine->file("proc/sys/kernel/osrelease", "6.1.0\n");
            machine->scsiDisk("sda", "0:0:0:1", "naa.6001").scsiDisk("sdb", "1:0:0:1", "naa.6001");
        }
    }
    Ended diff() const { return kivclaim({"diff", "--json", beforeRoot.path(), afterRoot.path()}); }

    tests::TemporaryFolder beforeRoot;
    tests::TemporaryFolder afterRoot;
    tests::SysfsDirectory before{beforeRoot.path()};
    tests::SysfsDirectory after{afterRoot.path()};
};

}  // namespace

TEST_F(Comparison, OfTheSameMachineSaysNothing)
{
    const Ended ended = kivclaim({"diff", beforeRoot.path(), afterRoot.path()});
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(diff().output, "{\n   \"changes\": []\n}\n");
}

TEST_F(Comparison, OfTwoRecordingsOfThisMachineSaysNothing)
{
    const std::string recording = beforeRoot.path() + "/this.tar.zst";
    ASSERT_EQ(kivclaim({"record", recording}).status, 0);
    EXPECT_EQ(kivclaim({"diff", recording, "-"}).status, 0);
    EXPECT_EQ(kivclaim({"diff", "-", "-"}).status, 0);
}

TEST_F(Comparison, NamesDevicesThatCameAndWent)
{
    before.scsiDisk("sdc", "0:0:0:2", "naa.6002").attribute("sdc", "size", "16\n");
    after.scsiDisk("sdd", "0:0:0:3", "naa.6003").partition("sdd", 1);
    after.attribute("sdd", "size", "32\n")
        .attribute("sdd1", "size", "8\n")
        .attribute("sdd", "device/state", "running\n");
    const Ended ended = diff();
    EXPECT_THAT(changesIn(ended), testing::ElementsAre("went|/dev/sdc||native 2, 8192 bytes, running|",
                                                       "came|/dev/sdd|||native 2, 16384 bytes, running",
                                                       "came|/dev/sdd1|||native 2, 4096 bytes"));
    EXPECT_EQ(ended.status, 1);
}

TEST_F(Comparison, NamesWhatChangedOfADevice)
{
    before.attribute("sda", "size", "16\n").attribute("sdb", "device/state", "running\n");
    after.attribute("sda", "size", "32\n").attribute("sdb", "device/state", "offline\n");
    EXPECT_THAT(changesIn(diff()),
                testing::ElementsAre("changed|/dev/sda|size|8192|16384", "changed|/dev/sdb|state|running|offline"));
}

TEST_F(Comparison, ADiskThatGotAnotherNameIsTheSameDisk)
{
    before.scsiDisk("sdc", "0:0:0:2", "naa.6002").partition("sdc", 1);
    after.scsiDisk("sdz", "0:0:0:2", "naa.6002").partition("sdz", 1);
    before.attribute("sdc", "size", "8\n").attribute("sdc1", "size", "8\n");
    after.attribute("sdz", "size", "8\n").attribute("sdz1", "size", "8\n");
    EXPECT_THAT(changesIn(diff()), testing::ElementsAre("changed|/dev/sdz|name|/dev/sdc|/dev/sdz",
                                                        "changed|/dev/sdz1|name|/dev/sdc1|/dev/sdz1"));
}

TEST_F(Comparison, NamesANewMapAndAnotherClaim)
{
    before.multipathMap("dm-0", "mpatha", "36001", {"sda"}).volume("dm-1", "vg-lv", {"sda"});
    after.multipathMap("dm-0", "mpathb", "36001", {"sda", "sdb"}).volume("dm-1", "vg-lv", {"sda"});
    after.file("kivclaim/commands/sbin/lvdisplay/output", "  LV Path /dev/vg/lv\n  LV Name lv\n  VG Name vg\n");
    EXPECT_THAT(changesIn(diff()),
                testing::ElementsAre("changed|/dev/mapper/mpathb|name|/dev/mapper/mpatha|/dev/mapper/mpathb",
                                     "changed|/dev/mapper/vg-lv|claim|device-mapper 16|none 0",
                                     "changed|/dev/sda|map|/dev/mapper/mpatha|/dev/mapper/mpathb",
                                     "changed|/dev/sdb|map||/dev/mapper/mpathb"));
}

TEST_F(Comparison, TheTableHasALineForEachChange)
{
    before.attribute("sda", "size", "16\n");
    after.attribute("sda", "size", "32\n");
    EXPECT_EQ(kivclaim({"diff", beforeRoot.path(), afterRoot.path()}).output,
              "CHANGE  DEVICE   FACT BEFORE AFTER\nchanged /dev/sda size 8192   16384\n");
}

TEST_F(Comparison, ABadRecordingIsAnError)
{
    const Ended ended = kivclaim({"diff", beforeRoot.path(), "/no/such.tar.zst"});
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.errors, HasSubstr("cannot open the directory /no/such.tar.zst: No such file or directory"));
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(kivclaim({"--sysroot", beforeRoot.path(), "diff", "-", "-"}).errors,
              "kivclaim: diff compares the two machines that it names; leave out --sysroot\n");
}

TEST_F(Comparison, OneTableShowsTheLunsOfAFleet)
{
    const std::string directory = std::filesystem::path(KIVCLAIM_COMMAND).parent_path();
    const tests::TemporaryFolder fleet;
    ASSERT_EQ(kivclaim({"--sysroot", beforeRoot.path(), "record", fleet.path() + "/db1.tar.zst"}).status, 0);
    after.attribute("sda", "size", "2048\n").attribute("sdb", "size", "2048\n");
    ASSERT_EQ(kivclaim({"--sysroot", afterRoot.path(), "record", fleet.path() + "/db2.tar.zst"}).status, 0);
    const Ended ended = tests::Process(KIVCLAIM_SOURCE "/examples/ansible/fleet_table",
                                       {fleet.path() + "/db1.tar.zst", fleet.path() + "/db2.tar.zst"})
                            .environment("PATH", directory + ":/usr/bin:/bin")
                            .run();
    EXPECT_EQ(ended.errors, "");
    EXPECT_THAT(ended.output, testing::MatchesRegex("MACHINE WWID SIZE DEVICE STACK PATHS MARK\n"
                                                    "db1 36001 [^ ]+ /dev/sda native [^ ]+ no-map\n"
                                                    "db2 36001 1M /dev/sda native [^ ]+ no-map\n"));
    EXPECT_EQ(ended.status, 0);
}

TEST_F(Comparison, TheTableOfAFleetTellsOfARecordingThatCannotBeRead)
{
    const std::string directory = std::filesystem::path(KIVCLAIM_COMMAND).parent_path();
    const tests::TemporaryFolder fleet;
    fleet.addFile("db1.tar.zst", "cut");
    ASSERT_EQ(kivclaim({"--sysroot", beforeRoot.path(), "record", fleet.path() + "/db2.tar.zst"}).status, 0);
    const Ended ended = tests::Process(KIVCLAIM_SOURCE "/examples/ansible/fleet_table",
                                       {fleet.path() + "/db1.tar.zst", fleet.path() + "/db2.tar.zst"})
                            .environment("PATH", directory + ":/usr/bin:/bin")
                            .run();
    EXPECT_THAT(ended.errors, HasSubstr("cannot use the recording '" + fleet.path() + "/db1.tar.zst': "));
    EXPECT_THAT(ended.output, testing::MatchesRegex("MACHINE WWID SIZE DEVICE STACK PATHS MARK\n"
                                                    "db2 36001 [^ ]+ /dev/sda native [^ ]+ no-map\n"));
    EXPECT_EQ(ended.status, 1);
}

class Metrics : public Comparison {
protected:
    Metrics() { before.multipathMap("dm-0", "mpatha", "36001", {"sda"}).volume("dm-1", "vg--a-lv", {"sdb"}); }

    Ended audit() const { return kivclaim({"--sysroot", beforeRoot.path(), "audit", "--openmetrics"}); }
};

TEST_F(Metrics, CountDevicesAndQuirks)
{
    before.file("kivclaim/commands/sbin/lvdisplay/output", "  LV Path /dev/vg-a/lv\n  LV Name lv\n  VG Name vg-a\n");
    const Ended ended = audit();
    EXPECT_EQ(ended.output,
              "# TYPE kivclaim_audit_devices gauge\n"
              "# HELP kivclaim_audit_devices Devices by how the library's answers compare with the kernel's.\n"
              "kivclaim_audit_devices{verdict=\"agrees\"} 2\n"
              "kivclaim_audit_devices{verdict=\"differs\"} 0\n"
              "kivclaim_audit_devices{verdict=\"quirk\"} 2\n"
              "# TYPE kivclaim_audit_quirks gauge\n"
              "# HELP kivclaim_audit_quirks Answers that differ from the kernel's by a known quirk.\n"
              "kivclaim_audit_quirks{quirk=\"dashed-volume\"} 1\n"
              "kivclaim_audit_quirks{quirk=\"path-of-a-map\"} 1\n"
              "# TYPE kivclaim_audit_unexplained gauge\n"
              "# HELP kivclaim_audit_unexplained Answers about a device that differ from the kernel's for no known "
              "reason.\n"
              "# TYPE kivclaim_audit_unsure_devices gauge\n"
              "# HELP kivclaim_audit_unsure_devices Devices about which the answers are unsure.\n"
              "kivclaim_audit_unsure_devices 0\n"
              "# EOF\n");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(Metrics, NameADeviceThatDiffersWithoutAKnownReason)
{
    const Ended ended =
        kivclaim({"--sysroot", beforeRoot.path(), "--module", CLAIMS_TOO_MUCH, "audit", "--openmetrics"});
    EXPECT_THAT(ended.output, HasSubstr("kivclaim_audit_unexplained{device=\"/dev/sda\"} 1\n"));
    EXPECT_EQ(ended.status, 1);
}

TEST_F(Metrics, CountUnsureDevices)
{
    before.remove("kivclaim");
    EXPECT_THAT(audit().output, HasSubstr("kivclaim_audit_unsure_devices 2\n"));
}

TEST_F(Metrics, ANameCannotForgeALine)
{
    before.mapping("dm-2", "x\"} 1\nforged 1", "CRYPT-a-b", {});
    const Ended ended =
        kivclaim({"--sysroot", beforeRoot.path(), "--module", CLAIMS_TOO_MUCH, "audit", "--openmetrics"});
    EXPECT_THAT(ended.output, testing::Not(HasSubstr("\nforged")));
    EXPECT_THAT(ended.output, testing::Not(HasSubstr("x\"}")));
}

#ifdef PROMTOOL
TEST_F(Metrics, AreGoodForPrometheus)
{
    const Ended ended = tests::Process(PROMTOOL, {"check", "metrics"}).reads(audit().output).run();
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(AlertRules, AreGoodForPrometheus)
{
    const Ended ended =
        tests::Process(PROMTOOL, {"check", "rules", KIVCLAIM_SOURCE "/examples/prometheus/kivclaim.rules.yml"}).run();
    EXPECT_THAT(ended.output, HasSubstr("SUCCESS: 3 rules found"));
    EXPECT_EQ(ended.status, 0);
}
#endif
