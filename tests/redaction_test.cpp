// `kivclaim record --redact` on the machines that were captured in the lab: every answer is the same, and no name of
// theirs is left.
#include "tests/captured_root.h"
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using nlohmann::json;
using tests::Ended;

namespace {

std::string contentOf(const std::filesystem::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::vector<std::string> sortedLines(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

bool isLetterOrDigit(char character)
{
    return std::isalnum(static_cast<unsigned char>(character)) != 0;
}

// Letters and digits without their values: stand-ins have the length and the separators of their originals.
std::string shapeOf(std::string text)
{
    std::replace_if(text.begin(), text.end(), isLetterOrDigit, 'x');
    return text;
}

std::set<std::string> wordsOf(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char character) { return !isLetterOrDigit(character); }, ' ');
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

class Redaction : public testing::TestWithParam<const char*> {
protected:
    Redaction() : root(GetParam())
    {
        record({}, "plain");
        record({"--redact"}, "redacted");
    }

    void record(std::vector<std::string> options, const std::string& name) const
    {
        options.insert(options.begin(), {"--sysroot", root.path(), "record"});
        options.push_back(recordings.path() + "/" + name);
        const Ended ended = tests::Process(KIVCLAIM_COMMAND, options).run();
        EXPECT_EQ(ended.errors, "");
        EXPECT_EQ(ended.status, 0);
    }

    Ended ask(const std::string& recording, std::vector<std::string> question) const
    {
        question.insert(question.begin(), {"--sysroot", recordings.path() + "/" + recording});
        return tests::Process(KIVCLAIM_COMMAND, std::move(question)).environment("LC_ALL", "C").run();
    }

    // Of each device by its kernel name.
    std::map<std::string, json> devices(const std::string& recording) const
    {
        std::map<std::string, json> all;
        json list = json::parse(ask(recording, {"list", "-a", "-J", "-O"}).output);
        for (json& device : list["blockdevices"]) {
            const std::string name = device["kname"];
            all[name] = std::move(device);
        }
        return all;
    }

    tests::CapturedRoot root;
    tests::TemporaryFolder recordings;
};

// A path as the kernel name of its device, else its shape.
std::string relation(const std::map<std::string, json>& devices, const json& path)
{
    for (const auto& [name, device] : devices) {
        if (device["device"] == path) {
            return name;
        }
    }
    return path.is_string() ? shapeOf(path) : path.dump();
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Lab, Redaction, testing::Values("bullseye", "bookworm", "trixie"),
                         [](const auto& machine) { return std::string(machine.param); });

TEST_P(Redaction, KeepsEveryFactThatIsNoName)
{
    const std::vector<std::string> question = {
        "list", "-a", "-r", "-o",
        "KNAME,STACK,LEVEL,PART,MARK,MAJ:MIN,TYPE,SIZE,RO,RM,VENDOR,MODEL,REV,HCTL,TRAN,STATE,PKNAME,FSTYPE,PATHS"};
    const Ended plain = ask("plain", question);
    const Ended redacted = ask("redacted", question);
    EXPECT_EQ(sortedLines(plain.output).size(), 47U);
    EXPECT_EQ(sortedLines(redacted.output), sortedLines(plain.output));
    EXPECT_EQ(redacted.errors, "");
    EXPECT_EQ(redacted.status, plain.status);
}

TEST_P(Redaction, KeepsEveryRelation)
{
    const std::map<std::string, json> plain = devices("plain");
    const std::map<std::string, json> redacted = devices("redacted");
    ASSERT_EQ(plain.size(), 46U);
    ASSERT_EQ(redacted.size(), 46U);
    for (const auto& [name, device] : plain) {
        const json& other = redacted.at(name);
        for (const char* const column : {"device", "whole", "map"}) {
            EXPECT_EQ(relation(redacted, other[column]), relation(plain, device[column])) << name << " " << column;
        }
        for (const char* const column : {"serial", "wwn", "label", "uuid", "dmuuid", "mountpoints", "links"}) {
            EXPECT_EQ(shapeOf(other[column].dump()).size(), shapeOf(device[column].dump()).size())
                << name << " " << column;
        }
        for (const auto& [second, neighbour] : plain) {
            for (const char* const column : {"serial", "wwn", "uuid", "map"}) {
                EXPECT_EQ(other[column] == redacted.at(second)[column], device[column] == neighbour[column])
                    << name << " " << second << " " << column;
            }
        }
    }
}

TEST_P(Redaction, KeepsEveryQuirk)
{
    // By the number of the device.
    const auto verdicts = [&](const char* recording) {
        std::map<std::string, std::string> all;
        const json audit = json::parse(ask(recording, {"audit", "--json"}).output);
        for (const json& device : audit["devices"]) {
            json differences = json::array();
            for (const json& difference : device["differences"]) {
                differences.push_back({difference["question"], difference["verdict"], difference["quirk"],
                                       shapeOf(difference["library"]), shapeOf(difference["kernel"])});
            }
            all[device["kernel"]["number"]] = differences.dump();
        }
        return all;
    };
    EXPECT_EQ(verdicts("plain").size(), 46U);
    EXPECT_EQ(verdicts("redacted"), verdicts("plain"));
}

TEST_P(Redaction, KeepsEveryExplanation)
{
    const std::map<std::string, json> plain = devices("plain");
    const std::map<std::string, json> redacted = devices("redacted");
    std::set<std::string> kinds;
    for (const auto& [name, device] : plain) {
        // One of each kind is enough.
        if (!kinds.insert(device["type"].dump() + device["stack"].dump() + device["mark"].dump()).second) {
            continue;
        }
        const Ended one = ask("plain", {"explain", device["device"]});
        const Ended two = ask("redacted", {"explain", redacted.at(name)["device"]});
        EXPECT_EQ(shapeOf(two.output), shapeOf(one.output)) << name;
        EXPECT_EQ(two.status, one.status);
    }
    EXPECT_GT(kinds.size(), 6U);
}

TEST_P(Redaction, LeavesNoName)
{
    std::set<std::string> names = wordsOf("lab lvol1 home lv1");
    std::set<std::string> identifiers;
    for (const auto& [name, device] : devices("plain")) {
        const std::string path = device["device"];
        for (const std::string& text : {path.rfind("/dev/mapper/", 0) == 0 ? path.substr(12) : std::string(),
                                        device["label"].dump(), device["serial"].dump()}) {
            const std::set<std::string> words = wordsOf(text);
            names.insert(words.begin(), words.end());
        }
        for (std::string text : {device["wwn"].dump(), device["uuid"].dump(), device["dmuuid"].dump()}) {
            text.erase(std::remove(text.begin(), text.end(), '"'), text.end());
            for (const std::string before : {"0x", "mpath-3", "LVM-"}) {
                const std::size_t place = text.find(before);
                text = place == std::string::npos ? text : text.substr(place + before.size());
            }
            if (text != "null") {
                identifiers.insert(text);
            }
        }
    }
    // Words of every machine, and parts of names that are none by themselves.
    for (auto word = names.begin(); word != names.end();) {
        const std::set<std::string> common = {"a", "data", "dir", "disk", "mpath", "null", "pv", "swap", "vg"};
        word = word->rfind("part", 0) == 0 || common.count(*word) != 0 ? names.erase(word) : std::next(word);
    }
    ASSERT_GT(names.size(), 8U);
    ASSERT_GT(identifiers.size(), 15U);
    const std::filesystem::path top = recordings.path() + "/redacted";
    for (const auto& entry : std::filesystem::recursive_directory_iterator(top)) {
        const std::string path = entry.path().lexically_relative(top);
        const std::string text = path + "\n" +
                                 (entry.is_symlink()        ? std::filesystem::read_symlink(entry.path()).string()
                                  : entry.is_regular_file() ? contentOf(entry.path())
                                                            : std::string());
        for (const std::string& word : wordsOf(text)) {
            EXPECT_EQ(names.count(word), 0U) << word << " in " << path;
        }
        for (const std::string& identifier : identifiers) {
            EXPECT_EQ(text.find(identifier), std::string::npos) << identifier << " in " << path;
        }
    }
}

// Whatever lvdisplay complains about: groups and disks that are gone are named nowhere else.
TEST_P(Redaction, MessagesKeepTheirWordsAndNoName)
{
    const std::string place = root.path() + "/kivclaim/commands/sbin/lvdisplay/";
    std::ofstream(place + "errors")
        << "  WARNING: Couldn't find device with uuid 8LU3Nn-yVv9-1abc-DEfg-2345-6789-HIjkLm.\n"
           "  Volume group \"payroll\" not found\n"
           "  Cannot process volume group payroll_old\n"
           "  /dev/mapper/secret-map: open failed: No such device\n"
           "  /dev/sdq: read failed after 0 of 4096 at 0: Input/output error\n"
           "  Skipping volume group g1 with foreign system ID db1.example.com\n";
    std::ofstream(place + "status") << "5\n";
    record({}, "plain messages");
    record({"--redact"}, "redacted messages");
    const std::string text =
        contentOf(recordings.path() + "/redacted messages/kivclaim/commands/sbin/lvdisplay/errors");
    for (const char* const name : {"8LU3Nn", "HIjkLm", "payroll", "old", "secret", "map:", "g1", "db1", "example"}) {
        EXPECT_EQ(text.find(name), std::string::npos) << name << " in " << text;
    }
    for (const char* const kept :
         {"  WARNING: Couldn't find device with uuid ", ".\n  Volume group \"",
          "\" not found\n  Cannot process volume group ", "  /dev/mapper/", ": open failed: No such device\n",
          "  /dev/sdq: read failed after 0 of 4096 at 0: Input/output error\n", " with foreign system ID "}) {
        EXPECT_NE(text.find(kept), std::string::npos) << kept << " in " << text;
    }
    const Ended plain = ask("plain messages", {"list", "-r", "-o", "KNAME,STACK,LEVEL,MARK"});
    const Ended redacted = ask("redacted messages", {"list", "-r", "-o", "KNAME,STACK,LEVEL,MARK"});
    EXPECT_EQ(sortedLines(redacted.output), sortedLines(plain.output));
    EXPECT_EQ(shapeOf(redacted.errors), shapeOf(plain.errors));
    EXPECT_NE(plain.errors.find("db1.example.com"), std::string::npos) << plain.errors;
    EXPECT_EQ(redacted.errors.find("example"), std::string::npos) << redacted.errors;
}

TEST_P(Redaction, PathsOverANetworkKeepNeitherAddressNorName)
{
    const std::string place = "/dev/disk/by-path/";
    for (const auto& [name, disk] :
         {std::pair("ip-10.21.32.43:3260-iscsi-iqn.2001-04.com.acme:disk-lun-1", "sda"),
          std::pair("ip-10.21.32.43:3260-iscsi-iqn.2001-04.com.acme:disk-lun-1-part2", "sdb"),
          std::pair("pci-0000:3b:00.0-fc-0x500507680b21ac8f-lun-7", "sdc")}) {
        std::filesystem::create_symlink("../../" + std::string(disk), root.path() + place + name);
    }
    record({"--redact"}, "network");
    std::set<std::string> names;
    for (const auto& link : std::filesystem::directory_iterator(recordings.path() + "/network" + place)) {
        const std::string name = link.path().filename();
        if (name.find("-lun-") != std::string::npos) {
            names.insert(std::filesystem::read_symlink(link.path()).string() + name.substr(name.find("-lun-")));
        }
        for (const char* const original : {"10.21", "32.43", "2001-04", "acme", "500507680b21ac8f"}) {
            EXPECT_EQ(name.find(original), std::string::npos) << original << " in " << name;
        }
    }
    EXPECT_EQ(names, (std::set<std::string>{"../../sda-lun-1", "../../sdb-lun-1-part2", "../../sdc-lun-7"}));
}

TEST_P(Redaction, IsTheSameEachTime)
{
    record({"--redact"}, "again");
    EXPECT_EQ(ask("again", {"list", "-O"}).output, ask("redacted", {"list", "-O"}).output);
}
