// The command on the machine that was captured in the lab, tests/captured: umockdev plays its devices, and its listing
// of logical volumes stands in the place of the tool.
#include "tests/captured_releases.h"
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using tests::Ended;

namespace {

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

class CapturedMachine : public testing::TestWithParam<std::string> {
protected:
    CapturedMachine()
    {
        tools.addFile("listing", captured("lvdisplay/four_volumes.txt"));
        tools.addScript("lvdisplay", "/bin/cat /usr/sbin/listing\n");
        machine.addFile("devices", devices());
    }

    static std::string captured(const std::string& name) { return tests::captured(GetParam(), name); }

    Ended kivclaim(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"-d", machine.path() + "/devices", "--", KIVCLAIM_COMMAND});
        return tests::Process("umockdev-run", std::move(arguments))
            .environment("LC_ALL", "C")
            .sees(tools.path(), "/usr/sbin")
            .run();
    }

    // The words in the given columns of each line of the command's answer.
    std::vector<std::string> columns(std::vector<std::string> arguments, std::size_t count)
    {
        const Ended ended = kivclaim(std::move(arguments));
        EXPECT_EQ(ended.errors, "");
        EXPECT_EQ(ended.status, 0);
        std::vector<std::string> rows;
        for (const std::string& line : linesOf(ended.output)) {
            std::istringstream words(line);
            std::string row;
            std::string word;
            for (std::size_t i = 0; i < count && words >> word; ++i) {
                row += (i == 0 ? "" : " ") + word;
            }
            rows.push_back(row);
        }
        return rows;
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

}  // namespace

INSTANTIATE_TEST_SUITE_P(Lab, CapturedMachine, testing::ValuesIn(tests::capturedReleases()),
                         [](const auto& release) { return release.param; });

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

TEST_P(CapturedMachine, EachKindOfDeviceOfLsblkHasItsStack)
{
    const std::map<std::string, std::string> stacks = {
        {"mpath", "device-mapper"}, {"part", "device-mapper"}, {"disk", "native"}, {"lvm", "none"}};
    const std::set<std::string> dashed = {"vg--a-lv1", "vg00-home--dir"};
    std::set<std::string> expected;
    for (const std::string& line : linesOf(captured("lsblk.txt"))) {
        std::istringstream words(line);
        std::string name;
        std::string type;
        words >> name >> type;
        if (name.rfind("sd", 0) == 0) {
            expected.insert("/dev/" + name + " native");
        } else {
            expected.insert("/dev/mapper/" + name + " " +
                            (dashed.count(name) != 0 ? "device-mapper" : stacks.at(type)));
        }
    }
    ASSERT_EQ(expected.size(), 46U);
    const std::vector<std::string> rows = columns({"list", "--all", "--noheadings"}, 2);
    EXPECT_EQ(std::set<std::string>(rows.begin(), rows.end()), expected);
}

TEST_P(CapturedMachine, EveryDifferenceIsAKnownQuirk)
{
    const Ended ended = kivclaim({"audit", "--only-differences"});
    EXPECT_EQ(ended.status, 0);
    std::map<std::string, int> quirks;
    for (const std::string& line : linesOf(ended.output)) {
        for (const char* const quirk : {"last-digit", "missing-neighbour", "partition-like-name", "path-of-a-map",
                                        "dashed-volume", "name-decides", "release-decides", "failed-listing"}) {
            quirks[quirk] += line.find(std::string(" ") + quirk + " ") != std::string::npos ? 1 : 0;
        }
    }
    const std::map<std::string, int> expected = {
        {"last-digit", 3},    {"missing-neighbour", 1}, {"partition-like-name", 2}, {"path-of-a-map", 16},
        {"dashed-volume", 2}, {"name-decides", 0},      {"release-decides", 0},     {"failed-listing", 0}};
    EXPECT_EQ(quirks, expected) << ended.output;
    EXPECT_EQ(linesOf(ended.output).back(),
              "46 devices: 22 agree, 24 differ by known quirks (see docs/quirks.md), "
              "0 differ otherwise");
}

// Without the model, which the releases of lsblk write with a blank or with an underscore.
TEST_P(CapturedMachine, LsblkFindsTheSameDevicesInTheCopy)
{
    const tests::TemporaryFolder root;
    const Ended unpacked =
        tests::Process(KIVCLAIM_UNPACK_MACHINE, {tests::capturedPath(GetParam(), "machine.txt"), root.path()}).run();
    ASSERT_EQ(unpacked.status, 0) << unpacked.errors;
    const Ended listed = tests::Process("lsblk", {"--sysroot", root.path(), "--all", "--bytes", "--pairs", "--output",
                                                  "KNAME,MAJ:MIN,SIZE,TYPE,RO,HCTL,STATE,PKNAME"})
                             .environment("LC_ALL", "C")
                             .run();
    EXPECT_EQ(listed.status, 0) << listed.errors;
    const std::string expected = std::regex_replace(captured("lsblk_columns.txt"), std::regex(R"( MODEL="[^"]*")"), "");
    EXPECT_EQ(sorted(linesOf(listed.output)), sorted(linesOf(expected)));
}
