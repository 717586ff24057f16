// Every command on every machine that was captured, tests/captured, as a directory for --sysroot.
#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

using testing::HasSubstr;
using tests::Ended;

namespace {

std::string contentOf(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// tests/captured itself, or each directory in it that holds a machine.
std::vector<std::string> capturedMachines()
{
    std::vector<std::string> machines;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(KIVCLAIM_CAPTURED)) {
        if (entry.path().filename() == "devices.umockdev") {
            machines.push_back(entry.path().parent_path());
        }
    }
    return machines;
}

// Writes what was captured of a machine's devices as files.
class Root {
public:
    explicit Root(const std::string& captured) : directory(folder.path())
    {
        for (const std::string& line : linesOf(contentOf(captured + "/devices.umockdev"))) {
            add(line);
        }
        directory.file("proc/sys/kernel/osrelease", "6.1.0-41-amd64\n");
        directory.file("kivclaim/commands/sbin/lvdisplay/output", contentOf(captured + "/lvdisplay/four_volumes.txt"));
    }

    const std::string& path() const { return folder.path(); }

private:
    void add(const std::string& line)
    {
        if (line.size() < 3) {
            return;
        }
        const std::string rest = line.substr(3);
        const std::size_t equals = rest.find('=');
        if (line[0] == 'P') {
            place = "sys" + rest;
            const std::string name = rest.substr(rest.rfind('/'));
            directory.link("/sys/class/block" + name, "../.." + rest);
        } else if (line[0] == 'A') {
            // The line end is written as two characters.
            const std::string value = rest.substr(equals + 1);
            directory.file(place + "/" + rest.substr(0, equals), value.substr(0, value.find("\\n")) + "\n");
        } else if (line[0] == 'L') {
            directory.link("/" + place + "/" + rest.substr(0, equals), rest.substr(equals + 1));
        }
    }

    tests::TemporaryFolder folder;
    tests::SysfsDirectory directory;
    std::string place;
};

class CapturedRoots : public testing::TestWithParam<std::string> {
protected:
    CapturedRoots() : root(GetParam()) {}

    Ended ask(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--sysroot", root.path()});
        return tests::Process(KIVCLAIM_COMMAND, std::move(arguments)).environment("LC_ALL", "C").run();
    }

    // The paths that lsblk showed there, with their stacks.
    std::map<std::string, std::string> stacks() const
    {
        const std::map<std::string, std::string> ofTypes = {
            {"mpath", "device-mapper"}, {"part", "device-mapper"}, {"disk", "native"}, {"lvm", "none"}};
        std::map<std::string, std::string> stacks;
        for (const std::string& line : linesOf(contentOf(GetParam() + "/lsblk.txt"))) {
            std::istringstream words(line);
            std::string name;
            std::string type;
            words >> name >> type;
            const bool isDisk = name.rfind("sd", 0) == 0;
            const bool isDashedVolume = type == "lvm" && name.find("--") != std::string::npos;
            stacks[(isDisk ? "/dev/" : "/dev/mapper/") + name] = isDisk           ? "native"
                                                                 : isDashedVolume ? "device-mapper"
                                                                                  : ofTypes.at(type);
        }
        return stacks;
    }

    Root root;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Lab, CapturedRoots, testing::ValuesIn(capturedMachines()),
                         [](const auto& machine) { return "Machine" + std::to_string(machine.index); });

TEST_P(CapturedRoots, EveryCommandAnswers)
{
    const std::map<std::string, std::string> devices = stacks();
    ASSERT_GT(devices.size(), 40U);
    for (const auto& [path, stack] : devices) {
        const Ended claim = ask({"claim", path});
        const std::string level = stack == "none" ? "0 " : stack == "native" ? "2 " : "16 ";
        EXPECT_EQ(claim.output, level + stack + " " + path + "\n");
        EXPECT_EQ(claim.errors, path.find("--") != std::string::npos
                                    ? "kivclaim: the kernel calls " + path +
                                          " a logical volume; 'kivclaim audit' tells why the library "
                                          "claims it\n"
                                    : "");
        EXPECT_EQ(claim.status, stack == "none" ? 1 : 0);
        EXPECT_THAT(ask({"explain", path}).output,
                    HasSubstr(stack == "none" ? "Claimed by none" : "Claimed by " + stack));
    }
    EXPECT_EQ(ask({"is-partition", "/dev/mapper/data-part3", "/dev/mapper/data"}).output,
              "yes /dev/mapper/data-part3\nno /dev/mapper/data\n");
    EXPECT_EQ(ask({"whole", "/dev/mapper/data-part3", "/dev/sdq12"}).output, "/dev/mapper/data 3\n/dev/sdq 12\n");
    EXPECT_EQ(ask({"partition", "/dev/mapper/data", "3"}).output, "/dev/mapper/data-part3\n");
    EXPECT_EQ(ask({"prefixes"}).status, 0);
}

TEST_P(CapturedRoots, TheListShowsEveryDeviceWithItsStack)
{
    std::map<std::string, std::string> listed;
    const Ended ended = ask({"list", "--all", "--noheadings", "--raw", "-o", "DEVICE,STACK"});
    for (const std::string& line : linesOf(ended.output)) {
        listed[line.substr(0, line.find(' '))] = line.substr(line.find(' ') + 1);
    }
    EXPECT_EQ(listed, stacks());
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
}

TEST_P(CapturedRoots, EveryDifferenceIsAKnownQuirk)
{
    const Ended ended = ask({"audit"});
    EXPECT_EQ(linesOf(ended.output).back(),
              "46 devices: 22 agree, 24 differ by known quirks (see docs/quirks.md), 0 differ otherwise");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
}
