// Every command on the machines that were captured in the lab, tests/captured: as directories for --sysroot, and played
// live by umockdev.
#include "tests/captured_releases.h"
#include "tests/captured_root.h"
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using testing::HasSubstr;
using tests::Ended;

namespace {

using Stacks = std::map<std::string, std::string>;  // by path

std::vector<std::string> linesOf(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> sorted(std::vector<std::string> lines)
{
    std::sort(lines.begin(), lines.end());
    return lines;
}

// Device and stack from a list that shows them as its first two columns, whatever else it shows.
Stacks stacksIn(const std::string& list)
{
    static const std::regex row(R"re((/dev/[^ "]+)"?( STACK="| +)([a-z-]+))re");
    Stacks stacks;
    for (const std::string& line : linesOf(list)) {
        std::smatch found;
        if (std::regex_search(line, found, row)) {
            stacks[found[1]] = found[3];
        }
    }
    return stacks;
}

void addStacks(const nlohmann::json& devices, Stacks& stacks)
{
    for (const nlohmann::json& device : devices) {
        stacks[device["device"]] = device["stack"];
        addStacks(device.value("children", nlohmann::json::array()), stacks);
    }
}

Stacks stacksInJson(const std::string& list)
{
    Stacks stacks;
    addStacks(nlohmann::json::parse(list)["blockdevices"], stacks);
    return stacks;
}

class CapturedMachine : public testing::TestWithParam<std::string> {
protected:
    static std::string captured(const std::string& name) { return tests::captured(GetParam(), name); }

    Ended run(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--sysroot", root.path()});
        return tests::Process(KIVCLAIM_COMMAND, std::move(arguments)).environment("LC_ALL", "C.UTF-8").run();
    }

    // What a command prints that has nothing to complain about.
    std::string output(std::vector<std::string> arguments) const
    {
        const Ended ended = run(std::move(arguments));
        EXPECT_EQ(ended.errors, "");
        EXPECT_EQ(ended.status, 0);
        return ended.output;
    }

    // The paths that lsblk showed there.
    static Stacks expectedStacks()
    {
        const Stacks ofTypes = {
            {"mpath", "device-mapper"}, {"part", "device-mapper"}, {"disk", "native"}, {"lvm", "none"}};
        const std::set<std::string> dashed = {"vg--a-lv1", "vg00-home--dir"};
        Stacks stacks;
        for (const std::string& line : linesOf(captured("lsblk.txt"))) {
            std::istringstream words(line);
            std::string name;
            std::string type;
            words >> name >> type;
            if (name.rfind("sd", 0) == 0) {
                stacks["/dev/" + name] = "native";
            } else {
                stacks["/dev/mapper/" + name] = dashed.count(name) != 0 ? "device-mapper" : ofTypes.at(type);
            }
        }
        return stacks;
    }

    static Stacks expectedClaims()
    {
        Stacks claims = expectedStacks();
        for (auto device = claims.begin(); device != claims.end();) {
            device = device->second == "none" ? claims.erase(device) : std::next(device);
        }
        return claims;
    }

    tests::CapturedRoot root{GetParam()};
};

// The same machine as a live one: umockdev plays its devices, and its listing of volumes is in the tool's place.
class PlayedMachine : public CapturedMachine {
protected:
    PlayedMachine()
    {
        tools.addFile("listing", captured("lvdisplay/four_volumes.txt"));
        tools.addScript("lvdisplay", "/bin/cat /usr/sbin/listing\n");
        machine.addFile("devices", devices());
    }

    std::string livingOutput(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"-d", machine.path() + "/devices", "--", KIVCLAIM_COMMAND});
        const Ended ended = tests::Process("umockdev-run", std::move(arguments))
                                .environment("LC_ALL", "C.UTF-8")
                                .sees(tools.path(), "/usr/sbin")
                                .run();
        EXPECT_EQ(ended.errors, "");
        EXPECT_EQ(ended.status, 0);
        return ended.output;
    }

private:
    // As captured, but for the nodes of mappings: umockdev knows the number of a node, not that of a link to it.
    static std::string devices()
    {
        std::string text;
        std::vector<std::string> device;
        std::string mapperName;
        std::vector<std::string> lines = linesOf(captured("devices.umockdev"));
        lines.emplace_back();
        for (const std::string& line : lines) {
            if (line.rfind("S: mapper/", 0) == 0) {
                mapperName = line.substr(3);
            } else if (!line.empty()) {
                device.push_back(line);
            } else {
                for (const std::string& kept : device) {
                    text += withNode(kept, mapperName) + "\n";
                }
                text += "\n";
                device.clear();
                mapperName.clear();
            }
        }
        return text;
    }

    static std::string withNode(const std::string& line, const std::string& node)
    {
        for (const std::string start : {"N: ", "E: DEVNAME=/dev/"}) {
            if (!node.empty() && line.rfind(start, 0) == 0) {
                return start + node;
            }
        }
        return line;
    }

    tests::TemporaryFolder tools;
    tests::TemporaryFolder machine;
};

std::string nameOf(const testing::TestParamInfo<std::string>& release)
{
    return release.param;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Lab, CapturedMachine, testing::ValuesIn(tests::capturedReleases()), nameOf);
INSTANTIATE_TEST_SUITE_P(Lab, PlayedMachine, testing::ValuesIn(tests::capturedReleases()), nameOf);

TEST(CapturedReleases, AreThoseThatTheLabKnows)
{
    std::vector<std::string> known;
    std::ifstream list(KIVCLAIM_LAB_RELEASES);
    for (std::string line; std::getline(list, line);) {
        if (line.front() != '#') {
            known.push_back(line.substr(0, line.find(' ')));
        }
    }
    EXPECT_EQ(tests::capturedReleases(), sorted(known));
}

// Without the model, which the releases of lsblk write with a blank or with an underscore.
TEST_P(CapturedMachine, LsblkFindsTheSameDevicesInTheCopy)
{
    const Ended listed = tests::Process("lsblk", {"--sysroot", root.path(), "--all", "--bytes", "--pairs", "--output",
                                                  "KNAME,MAJ:MIN,SIZE,TYPE,RO,HCTL,STATE,PKNAME"})
                             .environment("LC_ALL", "C")
                             .run();
    EXPECT_EQ(listed.status, 0) << listed.errors;
    const std::string expected = std::regex_replace(captured("lsblk_columns.txt"), std::regex(R"( MODEL="[^"]*")"), "");
    EXPECT_EQ(sorted(linesOf(listed.output)), sorted(linesOf(expected)));
}

TEST_P(CapturedMachine, TheTreeHasTheColumnsAndPlacesOfLsblkThere)
{
    const std::string tree =
        output({"list", "--all", "-T", "-n", "-b", "-P", "-o", "KNAME,MAJ:MIN,SIZE,TYPE,RO,MODEL,HCTL,STATE,PKNAME"});
    const std::string expected =
        std::regex_replace(captured("lsblk_columns.txt"), std::regex("QEMU HARDDISK"), "QEMU_HARDDISK");
    EXPECT_EQ(sorted(linesOf(std::regex_replace(tree, std::regex("QEMU HARDDISK"), "QEMU_HARDDISK"))),
              sorted(linesOf(expected)));
}

TEST_P(CapturedMachine, EachKindOfDeviceOfLsblkHasItsStack)
{
    const Stacks expected = expectedStacks();
    ASSERT_EQ(expected.size(), 46U);
    EXPECT_EQ(stacksIn(output({"list", "--all"})), expected);
    EXPECT_EQ(stacksIn(output({"list", "--all", "-O"})), expected);
    EXPECT_EQ(stacksIn(output({"list", "--all", "-P"})), expected);
    EXPECT_EQ(stacksIn(output({"list", "--all", "-r"})), expected);
    EXPECT_EQ(stacksIn(output({"list", "--all", "-T"})), expected);
    EXPECT_EQ(stacksIn(output({"list", "--all", "-s"})), expected);
    EXPECT_EQ(stacksInJson(output({"list", "--all", "-J"})), expected);
    EXPECT_EQ(stacksInJson(output({"list", "--all", "-J", "-O", "-T"})), expected);
}

TEST_P(CapturedMachine, WithoutAllEachClaimedDeviceIsListed)
{
    const Stacks expected = expectedClaims();
    ASSERT_EQ(expected.size(), 44U);
    for (const std::string option : {"-O", "-P", "-r", "-T", "-s"}) {
        EXPECT_EQ(stacksIn(output({"list", option})), expected) << option;
    }
    EXPECT_EQ(stacksInJson(output({"list", "-J"})), expected);
    EXPECT_EQ(stacksIn(output({})), expected);
}

TEST_P(CapturedMachine, EachLunIsOneRow)
{
    EXPECT_EQ(output({"list", "--luns", "-n", "-r", "-o", "WWID,SIZE,DEVICE,STACK,PATHS,MOUNTPOINTS,MARK"}),
              "35000c50000000001 64M /dev/mapper/plain device-mapper 2/2  \n"
              "35000c50000000002 64M /dev/mapper/data device-mapper 2/2  \n"
              "35000c50000000003 64M /dev/mapper/disk7 device-mapper 2/2  \n"
              "35000c50000000004 64M /dev/mapper/logs-part1 device-mapper 2/2  partition-like-name\n"
              "35000c50000000005 64M /dev/mapper/mpath device-mapper 2/2  \n"
              "35000c50000000006 64M /dev/mapper/mpath1 device-mapper 2/2  partition-like-name\n"
              "35000c50000000007 64M /dev/mapper/old device-mapper 2/2  \n"
              "35000c50000000008 64M /dev/mapper/pv device-mapper 2/2 [SWAP] \n"
              "35000c50000000009 64M /dev/sdq native 1/1 /mnt \n");
}

TEST_P(CapturedMachine, ClaimAndExplainAnswerAboutEveryDevice)
{
    for (const auto& [path, stack] : expectedStacks()) {
        const Ended claim = run({"claim", path});
        const std::string level = stack == "none" ? "0 " : stack == "native" ? "2 " : "16 ";
        EXPECT_EQ(claim.output, level + stack + " " + path + "\n");
        EXPECT_EQ(claim.errors, path.find("--") != std::string::npos
                                    ? "kivclaim: the kernel calls " + path +
                                          " a logical volume; 'kivclaim audit' tells why the library "
                                          "claims it\n"
                                    : "");
        EXPECT_EQ(claim.status, stack == "none" ? 1 : 0);
        EXPECT_THAT(run({"explain", path}).output,
                    HasSubstr(stack == "none" ? "Claimed by none" : "Claimed by " + stack));
    }
}

TEST_P(CapturedMachine, NamesOfPartitionsAreTakenApartAndMade)
{
    EXPECT_EQ(run({"is-partition", "/dev/mapper/data-part3", "/dev/mapper/data", "/dev/sdq12"}).output,
              "yes /dev/mapper/data-part3\nno /dev/mapper/data\nyes /dev/sdq12\n");
    EXPECT_EQ(output({"whole", "/dev/mapper/data-part3", "/dev/sdq12", "/dev/mapper/disk7-part2"}),
              "/dev/mapper/data 3\n/dev/sdq 12\n/dev/mapper/disk7 2\n");
    EXPECT_EQ(output({"partition", "/dev/mapper/data", "3"}), "/dev/mapper/data-part3\n");
    EXPECT_EQ(output({"partition", "/dev/sdq", "12"}), "/dev/sdq12\n");
    EXPECT_EQ(output({"prefixes"}), "/dev/mapper/\n/dev/emcpower\n/dev/sd\n");
}

TEST_P(CapturedMachine, TheActivePathIsRefused)
{
    const Ended ended = run({"active-path", "/dev/sdc"});
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.errors, "kivclaim: active-path asks the volume manager of this machine; leave out --sysroot\n");
    EXPECT_EQ(ended.status, 2);
}

TEST_P(CapturedMachine, EveryDifferenceIsAKnownQuirk)
{
    const std::string audit = output({"audit", "--only-differences", "--no-fold"});
    std::map<std::string, int> quirks;
    for (const std::string& line : linesOf(audit)) {
        for (const char* const quirk : {"last-digit", "missing-neighbour", "partition-like-name", "path-of-a-map",
                                        "dashed-volume", "name-decides", "release-decides", "failed-listing"}) {
            quirks[quirk] += line.find(std::string(" ") + quirk + " ") != std::string::npos ? 1 : 0;
        }
    }
    const std::map<std::string, int> expected = {
        {"last-digit", 3},    {"missing-neighbour", 1}, {"partition-like-name", 2}, {"path-of-a-map", 16},
        {"dashed-volume", 2}, {"name-decides", 0},      {"release-decides", 0},     {"failed-listing", 0}};
    EXPECT_EQ(quirks, expected) << audit;
    EXPECT_EQ(linesOf(audit).back(),
              "46 devices: 22 agree, 24 differ by known quirks (see docs/quirks.md), "
              "0 differ otherwise");
}

TEST_P(PlayedMachine, ListAndAuditAreTheSameAsForTheCopy)
{
    EXPECT_EQ(livingOutput({"list", "--all"}), output({"list", "--all"}));
    EXPECT_EQ(livingOutput({"audit"}), output({"audit"}));
}
