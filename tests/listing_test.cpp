// `kivclaim list` on machines that are recorded in a directory.
#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using testing::HasSubstr;
using testing::StartsWith;
using tests::Ended;

namespace {

constexpr char sharedColumns[] = "KNAME,MAJ:MIN,SIZE,TYPE,RO,MODEL,HCTL,STATE,PKNAME";

std::multiset<std::string> linesOf(const std::string& text)
{
    std::multiset<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.insert(line);
    }
    return lines;
}

// The devices of a list in JSON, also those below others, each as one line. lsblk keeps the blanks around some texts.
void addDevices(const nlohmann::json& list, std::multiset<std::string>& devices)
{
    for (nlohmann::json device : list) {
        if (device.contains("children")) {
            addDevices(device["children"], devices);
            device.erase("children");
        }
        for (nlohmann::json& value : device) {
            if (value.is_string()) {
                const std::string text = value;
                value = text.substr(0, text.find_last_not_of(' ') + 1);
            }
        }
        devices.insert(device.dump());
    }
}

std::multiset<std::string> devicesIn(const std::string& json)
{
    std::multiset<std::string> devices;
    addDevices(nlohmann::json::parse(json)["blockdevices"], devices);
    return devices;
}

std::string volumeText(const std::string& group, const std::string& volume)
{
    return "  --- Logical volume ---\n  LV Path                /dev/" + group + "/" + volume +
           "\n  LV Name                " + volume + "\n  VG Name                " + group + "\n\n";
}

class Listing : public testing::Test {
protected:
    void SetUp() override
    {
        machine.file("proc/sys/kernel/osrelease", "6.1.0-18-amd64\n");
        lvdisplayPrints("", 0);
    }

    // On the recorded machine; and here, should the command ask this one.
    void lvdisplayPrints(const std::string& text, int status)
    {
        machine.file("kivclaim/commands/sbin/lvdisplay/output", text);
        machine.file("kivclaim/commands/sbin/lvdisplay/status", std::to_string(status) + "\n");
        tools.addFile("volumes", text);
        tools.addScript("lvdisplay", R"(cat "$(dirname "$0")/volumes"; exit )" + std::to_string(status));
    }

    // A map with two paths and a partition, and a disk beside it.
    void addSmallMachine()
    {
        machine.scsiDisk("sda", "0:0:0:1", "naa.6001405a").scsiDisk("sdb", "1:0:0:1", "naa.6001405a");
        machine.multipathMap("dm-0", "mpatha", "36001405a", {"sda", "sdb"}).multipathPartition("dm-1", "dm-0", 1);
        machine.scsiDisk("sdc", "2:0:0:0", "naa.6001405c").virtualDisk("xvda");
    }

    tests::Process command(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> all = {"list", "--sysroot", machine.path()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        tests::Process process(KIVCLAIM_COMMAND, all);
        process.environment("LC_ALL", "C.UTF-8").sees(tools.path(), "/usr/sbin");
        return process;
    }

    Ended list(const std::vector<std::string>& arguments) { return command(arguments).run(); }
    std::string output(const std::vector<std::string>& arguments)
    {
        const Ended ended = list(arguments);
        EXPECT_EQ(ended.errors, "");
        EXPECT_EQ(ended.status, 0);
        return ended.output;
    }
    std::string complaint(const std::vector<std::string>& arguments)
    {
        const Ended ended = list(arguments);
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(std::count(ended.errors.begin(), ended.errors.end(), '\n'), 1) << ended.errors;
        return ended.errors;
    }

    std::string lsblk(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"--sysroot", machine.path(), "-a", "--json"});
        const Ended ended = tests::Process("/usr/bin/lsblk", arguments).environment("LC_ALL", "C.UTF-8").run();
        EXPECT_EQ(ended.status, 0) << ended.errors;
        return ended.output;
    }

    tests::TemporaryFolder root;
    tests::TemporaryFolder tools;
    tests::SysfsDirectory machine{root.path()};
};

class ListingBesideLsblk : public Listing {
protected:
    void SetUp() override
    {
        Listing::SetUp();
        machine.scsiDisk("sda", "0:0:0:1").scsiDisk("sdb", "1:0:0:1").scsiDisk("sdc", "1:0:0:2");
        machine.partition("sda", 1).partition("sda", 5).attribute("sdc", "ro", "1\n").attribute("sdc", "size", "0\n");
        machine.attribute("sdb", "device/state", "offline\n").nvme("nvme0n1").partition("nvme0n1", 1);
        machine.virtualDisk("cciss/c0d0").partition("cciss/c0d0", 2).virtualDisk("loop3").virtualDisk("emcpowera");
        machine.multipathMap("dm-0", "mpatha", "36001", {"sda", "sdb"}).multipathPartition("dm-1", "dm-0", 1);
        machine.volume("dm-2", "vg-data", {"dm-1", "nvme0n1p1"}).attribute("dm-2", "dm/suspended", "1\n");
        machine.mapping("dm-3", "luks", "CRYPT-LUKS2-aa-luks", {"dm-2"}).mapping("dm-4", "plain", "", {"sdc"});
        addSizes();
    }

    // At and around the places where a size gets another suffix or another tenth.
    void addSizes()
    {
        unsigned int disk = 0;
        for (const unsigned long sectors :
             {1UL, 2UL, 3UL, 2047UL, 2048UL, 2049UL, 2201UL, 3071UL, 2097049UL, 2097151UL, 2097152UL, 2202010UL,
              3000000000UL, 4294967295UL, 4398046511104UL, 36028797018963967UL}) {
            const std::string name = "zram" + std::to_string(disk++);
            machine.virtualDisk(name).attribute(name, "size", std::to_string(sectors) + "\n");
        }
    }
};

}  // namespace

TEST_F(ListingBesideLsblk, AgreesAboutEveryDevice)
{
    constexpr char columns[] = "KNAME,MAJ:MIN,SIZE,TYPE,RO,MODEL,HCTL,STATE";
    const std::multiset<std::string> devices = devicesIn(output({"--all", "--json", "-o", columns}));
    EXPECT_EQ(devices.size(), 32U);
    EXPECT_EQ(devices, devicesIn(lsblk({"-l", "-o", columns})));
}

// Which of several parents lsblk lists depends on the order of a directory.
TEST_F(ListingBesideLsblk, GivesAParentThatLsblkKnows)
{
    const std::multiset<std::string> devices = devicesIn(output({"--all", "--json", "-o", "KNAME,PKNAME"}));
    const std::multiset<std::string> known = devicesIn(lsblk({"-o", "KNAME,PKNAME"}));
    EXPECT_EQ(devices.size(), 32U);
    EXPECT_THAT(known, testing::IsSupersetOf(devices));
}

TEST_F(ListingBesideLsblk, AgreesAboutSizesInBytes)
{
    EXPECT_EQ(devicesIn(output({"--all", "--json", "-b", "-o", "KNAME,SIZE"})),
              devicesIn(lsblk({"-l", "-b", "-o", "KNAME,SIZE"})));
}

TEST_F(ListingBesideLsblk, AgreesAboutEveryPlaceInTheTree)
{
    EXPECT_EQ(devicesIn(output({"--all", "--tree", "--json", "-o", sharedColumns})),
              devicesIn(lsblk({"-o", sharedColumns})));
}

TEST_F(Listing, JsonHasTheKeysAndTypesOfLsblk)
{
    machine.virtualDisk("xvda").mount("xvda", "/data").mount("xvda", "/srv");
    const std::string columns =
        "KNAME,MAJ:MIN,TYPE,SIZE,RO,RM,VENDOR,MODEL,REV,SERIAL,WWN,HCTL,TRAN,STATE,PKNAME,MOUNTPOINTS,FSTYPE,LABEL,UUID";
    EXPECT_EQ(output({"--all", "--json", "-o", columns}), lsblk({"-o", columns}));
    EXPECT_EQ(output({"--all", "--json", "-b", "-o", "SIZE"}), lsblk({"-b", "-o", "SIZE"}));
}

TEST_F(Listing, ShowsTheColumnsThatAreAddedAfterTheDefaultOnes)
{
    addSmallMachine();
    EXPECT_EQ(output({"-o", "+HCTL,MAP", "-S", "native"}),
              "DEVICE   STACK  LEVEL PART WHOLE HCTL    MAP\n"
              "/dev/sda native     2            0:0:0:1 /dev/mapper/mpatha\n"
              "/dev/sdb native     2            1:0:0:1 /dev/mapper/mpatha\n"
              "/dev/sdc native     2            2:0:0:0 \n");
}

TEST_F(Listing, AllColumnsAreThoseOfTheManual)
{
    addSmallMachine();
    const std::string heading = output({"-O", "-r", "/dev/sda"});
    EXPECT_EQ(heading.substr(0, heading.find('\n')),
              "DEVICE STACK LEVEL PART WHOLE MARK KNAME MAJ:MIN TYPE SIZE RO RM VENDOR MODEL REV SERIAL WWN HCTL TRAN "
              "STATE PKNAME MOUNTPOINTS FSTYPE LABEL UUID MAP PATHS DMUUID LINKS UNSURE");
}

TEST_F(Listing, ShowsThePathsOfAMapEachWithItsState)
{
    addSmallMachine();
    machine.attribute("sdb", "device/state", "offline\n");
    EXPECT_EQ(output({"-n", "-o", "PATHS,DMUUID", "/dev/mapper/mpatha"}),
              "sda:running mpath-36001405a\n"
              "sdb:offline \n");
}

TEST_F(Listing, FindsADeviceByAnyOfItsNames)
{
    addSmallMachine();
    machine.link("/dev/disk/by-id/wwn-0x6001405c", "../../sdc");
    EXPECT_EQ(output({"-n", "-o", "DEVICE,LINKS", "/dev/disk/by-id/wwn-0x6001405c"}),
              "/dev/sdc /dev/disk/by-id/wwn-0x6001405c\n");
    EXPECT_EQ(output({"-n", "-o", "DEVICE", "/dev/dm-0", "/dev/sda", "/dev/mapper/mpatha"}),
              "/dev/mapper/mpatha\n/dev/sda\n")
        << "in the order of the names, each device once";
    EXPECT_EQ(output({"-n", "-o", "DEVICE,STACK", "/dev/xvda"}), "/dev/xvda none\n") << "claimed or not";
    EXPECT_EQ(command({"-n", "-o", "DEVICE", "-"}).reads("/dev/sdb\n/dev/sdc\n").run().output, "/dev/sdb\n/dev/sdc\n");
}

TEST_F(Listing, NamesThePathsThatAreNoDevices)
{
    addSmallMachine();
    const Ended ended = list({"-n", "-o", "DEVICE", "/dev/nothing", "/dev/sda"});
    EXPECT_EQ(ended.output, "/dev/sda\n");
    EXPECT_EQ(
        ended.errors,
        "kivclaim: '/dev/nothing' is no block device of this machine; 'kivclaim list --all' shows those that are\n");
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(list({"-n", "/dev/nothing"}).output, "") << "not all devices instead";
}

TEST_F(Listing, SortsByAColumnThatNeedNotBeShown)
{
    addSmallMachine();
    machine.attribute("sda", "size", "8\n").attribute("sdb", "size", "2000000000\n").attribute("sdc", "size", "100\n");
    EXPECT_EQ(output({"-n", "-x", "SIZE", "-o", "DEVICE", "-S", "native"}), "/dev/sda\n/dev/sdc\n/dev/sdb\n");
    EXPECT_EQ(output({"-n", "-r", "-x", "size", "-T", "-o", "DEVICE", "-S", "native"}),
              "/dev/sda\n/dev/sdc\n/dev/sdb\n");
}

TEST_F(Listing, ShowsSomeStacksOnly)
{
    addSmallMachine();
    machine.virtualDisk("emcpowera");
    EXPECT_EQ(output({"-n", "-o", "DEVICE", "-S", "powerpath,none"}), "/dev/emcpowera\n/dev/xvda\n");
    EXPECT_THAT(output({"-n", "-o", "DEVICE", "--stacks", "device-mapper"}),
                "/dev/mapper/mpatha\n/dev/mapper/mpatha-part1\n");
}

TEST_F(Listing, ShowsUnderEachDeviceWhatIsOnIt)
{
    addSmallMachine();
    EXPECT_EQ(output({"-T", "-a", "-o", "DEVICE,PKNAME"}),
              "DEVICE                       PKNAME\n"
              "/dev/sda                     \n"
              "└─/dev/mapper/mpatha         sda\n"
              "  └─/dev/mapper/mpatha-part1 dm-0\n"
              "/dev/sdb                     \n"
              "└─/dev/mapper/mpatha         sdb\n"
              "  └─/dev/mapper/mpatha-part1 dm-0\n"
              "/dev/sdc                     \n"
              "/dev/xvda                    \n");
    EXPECT_EQ(output({"-T", "-n", "-o", "DEVICE", "/dev/sda"}),
              "/dev/sda\n"
              "└─/dev/mapper/mpatha\n"
              "  └─/dev/mapper/mpatha-part1\n");
}

TEST_F(Listing, ShowsUnderEachDeviceWhatItIsMadeOf)
{
    addSmallMachine();
    EXPECT_EQ(output({"-s", "-n", "-o", "DEVICE"}),
              "/dev/mapper/mpatha-part1\n"
              "└─/dev/mapper/mpatha\n"
              "  ├─/dev/sda\n"
              "  └─/dev/sdb\n"
              "/dev/sdc\n");
}

TEST_F(Listing, DevicesOnADeviceThatIsNotShownTakeItsPlace)
{
    machine.virtualDisk("xvda").mapping("dm-0", "inner", "", {"xvda"}).virtualDisk("md0").stack("dm-0", "md0");
    machine.mapping("dm-1", "outer", "", {"md0"});
    EXPECT_EQ(output({"-T", "-n", "-o", "DEVICE"}),
              "/dev/mapper/inner\n"
              "└─/dev/mapper/outer\n");
}

TEST_F(Listing, MarksTheQuirksOfEachDevice)
{
    lvdisplayPrints(volumeText("vg-a", "lv1") + volumeText("vg", "lv2"), 0);
    machine.scsiDisk("sda", "0:0:0:1", "naa.6001405a").scsiDisk("sdb", "0:0:0:2", "naa.6001405b");
    machine.multipathMap("dm-0", "data", "36001405a", {"sda"}).multipathPartition("dm-1", "dm-0", 1);
    machine.multipathPartition("dm-2", "dm-0", 12).multipathMap("dm-3", "web-part1", "36001405d", {});
    machine.mapping("dm-4", "data1", "part3-mpath-36001405a", {"dm-0"});
    machine.volume("dm-5", "vg--a-lv1", {"sdb"}).volume("dm-6", "vg-lv2", {"sdb"}).volume("dm-7", "vg-inner", {"sdb"});
    machine.mapping("dm-8", "luks", "CRYPT-LUKS2-aa-luks", {"sdb"}).multipathMap("dm-9", "vg-a-lv1", "36001405e", {});
    machine.file("dev/mapper/data-part1", "");
    const std::string marks = output({"-a", "-r", "-n", "-o", "DEVICE,MARK"});
    for (const char* const line : {
             "/dev/sda path-of-a-map\n",
             "/dev/sdb \n",
             "/dev/mapper/data \n",
             "/dev/mapper/data-part1 \n",
             "/dev/mapper/web-part1 partition-like-name\n",
             "/dev/mapper/vg--a-lv1 dashed-volume\n",
             "/dev/mapper/vg-lv2 \n",
             "/dev/mapper/vg-inner unlisted-volume\n",
             "/dev/mapper/luks any-mapping\n",
             "/dev/mapper/vg-a-lv1 dashed-volume\n",
         }) {
        EXPECT_THAT(marks, HasSubstr(line));
    }
    EXPECT_EQ(output({"-m", "-n", "-o", "DEVICE", "/dev/sda", "/dev/sdb"}), "/dev/sda\n");
}

TEST_F(Listing, AFailedListingMarksVolumesAndMakesAllMappingsUnsure)
{
    lvdisplayPrints("", 5);
    addSmallMachine();
    machine.volume("dm-2", "vg-lv", {"sdc"});
    const Ended ended = list({"-r", "-n", "-o", "DEVICE,MARK", "/dev/mapper/vg-lv", "/dev/mapper/mpatha", "/dev/sdc"});
    EXPECT_EQ(ended.output,
              "/dev/mapper/vg-lv failed-listing,unsure\n"
              "/dev/mapper/mpatha unsure\n"
              "/dev/sdc \n");
    EXPECT_EQ(ended.errors,
              "kivclaim: the answers about 2 devices are unsure, because /sbin/lvdisplay exited with status 5\n");
    EXPECT_EQ(ended.status, 0);
}

TEST_F(Listing, TablesWithUnsureAnswersHaveAColumnWithTheReason)
{
    lvdisplayPrints("", 5);
    addSmallMachine();
    EXPECT_EQ(list({"-r", "/dev/mapper/mpatha", "/dev/sdc"}).output,
              "DEVICE STACK LEVEL PART WHOLE UNSURE\n"
              "/dev/mapper/mpatha device-mapper 16   /sbin/lvdisplay\\x20exited\\x20with\\x20status\\x205\n"
              "/dev/sdc native 2   \n");
    EXPECT_THAT(list({"-J", "/dev/mapper/mpatha"}).output,
                HasSubstr("\"unsure\": \"/sbin/lvdisplay exited with status 5\""));
    EXPECT_THAT(list({"-J", "--luns", "/dev/mapper/mpatha"}).output,
                HasSubstr("\"unsure\": \"/sbin/lvdisplay exited with status 5\""));
    EXPECT_EQ(output({"-r", "-n", "/dev/sdc"}), "/dev/sdc native 2  \n");
}

TEST_F(Listing, AnUnsureAnswerCountsInTheExitStatusWhenThatIsWanted)
{
    lvdisplayPrints("", 5);
    addSmallMachine();
    EXPECT_EQ(list({"--strict", "/dev/mapper/mpatha"}).status, 3);
    EXPECT_EQ(list({"--strict", "--luns"}).status, 3);
    EXPECT_EQ(list({"--strict", "/dev/sdc"}).status, 0);
    const Ended silent = list({"--strict", "--no-warn", "/dev/mapper/mpatha"});
    EXPECT_EQ(silent.errors, "");
    EXPECT_EQ(silent.status, 3);
}

// A terminal is a matter of its own: the pseudo-terminal of script(1).
TEST_F(Listing, ShowsColorsOnATerminalUnlessTheEnvironmentOrTheUserRefuses)
{
    addSmallMachine();
    const auto onATerminal = [&](const std::string& variables, const std::string& options) {
        return tests::Process("script", {"--quiet", "--return", "--command",
                                         variables + " " + KIVCLAIM_COMMAND + " list --sysroot " + machine.path() +
                                             " -n -o STACK " + options + " /dev/sda",
                                         "/dev/null"})
            .run()
            .output;
    };
    EXPECT_EQ(onATerminal("env -u NO_COLOR TERM=xterm", ""), "\033[36mnative\033[0m\r\n");
    EXPECT_EQ(onATerminal("env NO_COLOR= TERM=xterm", ""), "\033[36mnative\033[0m\r\n") << "empty is not set";
    EXPECT_EQ(onATerminal("env NO_COLOR=1 TERM=xterm", ""), "native\r\n");
    EXPECT_EQ(onATerminal("env -u NO_COLOR TERM=dumb", ""), "native\r\n");
    EXPECT_EQ(onATerminal("env -u NO_COLOR -u TERM", ""), "native\r\n");
    EXPECT_EQ(onATerminal("env -u NO_COLOR TERM=xterm", "--color never"), "native\r\n");
    EXPECT_EQ(onATerminal("env -u NO_COLOR TERM=xterm", "--color auto"), "\033[36mnative\033[0m\r\n");
    EXPECT_EQ(onATerminal("env NO_COLOR=1 TERM=xterm", "--color always"), "\033[36mnative\033[0m\r\n");
    EXPECT_EQ(onATerminal("env -u NO_COLOR TERM=xterm", "--json"),
              "{\r\n   \"blockdevices\": [\r\n      {\r\n         \"stack\": \"native\"\r\n      }\r\n   ]\r\n}\r\n");
}

TEST_F(Listing, ACircleIsShownWholeAndMarked)
{
    machine.mapping("dm-0", "one", "", {}).mapping("dm-1", "two", "", {"dm-0"}).stack("dm-1", "dm-0");
    EXPECT_EQ(output({"-T", "-n", "-o", "DEVICE,MARK"}),
              "/dev/mapper/one   any-mapping,circle\n"
              "└─/dev/mapper/two any-mapping,circle\n");
    EXPECT_EQ(output({"-s", "-n", "-o", "DEVICE,MARK"}),
              "/dev/mapper/one   any-mapping,circle\n"
              "└─/dev/mapper/two any-mapping,circle\n");
}

TEST_F(Listing, ADeepStackAndOneWithManyPathsAreShownInFiniteTime)
{
    machine.virtualDisk("xvda").virtualDisk("xvdb");
    std::vector<std::string> below = {"xvda", "xvdb"};
    unsigned int number = 0;
    for (int level = 0; level < 40; ++level) {  // two to the 40 ways from the bottom to the top
        std::vector<std::string> layer;
        for (int i = 0; i < 2; ++i) {
            layer.push_back("dm-" + std::to_string(number++));
            machine.mapping(layer.back(), "wide" + std::to_string(number), "", below);
        }
        below = layer;
    }
    for (int level = 0; level < 1000; ++level) {
        const std::string name = "dm-" + std::to_string(number++);
        machine.mapping(name, "tall" + std::to_string(level), "", {below.back()});
        below = {name};
    }
    const std::multiset<std::string> devices = linesOf(output({"-T", "-r", "-n", "-o", "DEVICE"}));
    EXPECT_EQ(std::set<std::string>(devices.begin(), devices.end()).size(), 1080U);
    EXPECT_LT(devices.size(), 500000U);
}

TEST_F(Listing, ShowsColorsWhenTheyAreAskedFor)
{
    addSmallMachine();
    EXPECT_EQ(output({"-n", "-o", "STACK", "--color", "always", "/dev/sda"}), "\033[36mnative\033[0m\n");
    EXPECT_EQ(output({"-n", "-o", "STACK", "--color", "never", "/dev/sda"}), "native\n");
    EXPECT_EQ(output({"-n", "-o", "STACK", "/dev/sda"}), "native\n") << "no terminal";
    EXPECT_THAT(output({"-J", "-o", "STACK", "--color", "always", "/dev/sda"}), Not(HasSubstr("\033")));
}

TEST_F(Listing, NamesWhatIsUnknownAndWhatIsKnown)
{
    addSmallMachine();
    EXPECT_THAT(complaint({"-o", "DEVICE,NAME"}),
                StartsWith("kivclaim: 'NAME' is no column; the columns are DEVICE, STACK, LEVEL,"));
    EXPECT_THAT(complaint({"-x", "NAME"}), StartsWith("kivclaim: 'NAME' is no column; the columns are DEVICE,"));
    EXPECT_THAT(complaint({"--luns", "-o", "KNAME"}),
                "kivclaim: 'KNAME' is no column; the columns are WWID, SIZE, VENDOR, MODEL, DEVICE, STACK, PATHS, "
                "PARTITIONS, MOUNTPOINTS, MARK and UNSURE\n");
    EXPECT_EQ(complaint({"-S", "native,lvm"}),
              "kivclaim: 'lvm' is no stack; the stacks are powerpath, device-mapper, native and none\n");
    EXPECT_EQ(complaint({"--color", "often"}),
              "kivclaim: 'often' is no time to show colors; the times are auto, always and never\n");
}

// As a script writes it whose variable is not set.
TEST_F(Listing, AnEmptyChoiceIsRefused)
{
    addSmallMachine();
    EXPECT_THAT(complaint({"-o", ""}), StartsWith("kivclaim: --output: names no column; usage: kivclaim list"));
    EXPECT_THAT(complaint({"-x", ""}), StartsWith("kivclaim: --sort: names no column; usage: kivclaim list"));
    EXPECT_THAT(complaint({"-S", ""}), StartsWith("kivclaim: --stacks: names no stack; usage: kivclaim list"));
}

// libsmartcols 2.38 would measure them without end.
TEST_F(Listing, WhereTheLocaleHasNoSuchCharactersTheyAreShownAsBytes)
{
    machine
        .mapping("dm-0",
                 "gr\xc3\xb6\xc3\x9f"
                 "e",
                 "", {})
        .mount("dm-0", "/mnt/\xe3\x83\x87");
    const auto inLocale = [&](const std::string& name, const std::vector<std::string>& options) {
        tests::Process process = command(options);
        process.environment("LC_ALL", name);
        return process.run().output;
    };
    EXPECT_EQ(inLocale("C", {"-n", "-o", "DEVICE,MOUNTPOINTS"}),
              "/dev/mapper/gr\\xc3\\xb6\\xc3\\x9fe /mnt/\\xe3\\x83\\x87\n");
    EXPECT_EQ(inLocale("C.UTF-8", {"-n", "-o", "DEVICE,MOUNTPOINTS"}),
              "/dev/mapper/gr\xc3\xb6\xc3\x9f"
              "e /mnt/\xe3\x83\x87\n");
    EXPECT_EQ(inLocale("C", {"-T", "-n", "-o", "DEVICE"}), "/dev/mapper/gr\\xc3\\xb6\\xc3\\x9fe\n");
    for (const char* const form : {"-J", "-r", "-P"}) {
        EXPECT_EQ(inLocale("C", {form, "-o", "DEVICE,MOUNTPOINTS"}),
                  inLocale("C.UTF-8", {form, "-o", "DEVICE,MOUNTPOINTS"}));
    }
}

TEST_F(Listing, ADirectoryWithoutAMachineIsRefusedInOneLine)
{
    const tests::TemporaryFolder empty;
    for (const char* const form : {"-n", "--json", "--luns"}) {
        const Ended ended = tests::Process(KIVCLAIM_COMMAND, {"list", form, "--sysroot", empty.path()}).run();
        EXPECT_EQ(ended.output, "");
        EXPECT_THAT(ended.errors, HasSubstr(empty.path()));
        EXPECT_EQ(std::count(ended.errors.begin(), ended.errors.end(), '\n'), 1) << ended.errors;
        EXPECT_EQ(ended.status, 2);
    }
}

TEST_F(Listing, LunsAreOneRowEach)
{
    addSmallMachine();
    machine.attribute("sdb", "device/state", "offline\n").mount("dm-1", "/data").mount("sdc", "/srv");
    EXPECT_EQ(output({"--luns"}),
              "WWID      SIZE VENDOR MODEL        DEVICE             STACK         PATHS PARTITIONS               "
              "MOUNTPOINTS MARK\n"
              "36001405a   1G Maker  Virtual disk /dev/mapper/mpatha device-mapper   1/2 /dev/mapper/mpatha-part1 "
              "/data       \n"
              "36001405c   1G Maker  Virtual disk /dev/sdc           native          1/1                          "
              "/srv        \n");
    EXPECT_EQ(output({"--luns", "-n", "-o", "WWID", "/dev/sdb"}), "36001405a\n") << "by a path of it";
    EXPECT_EQ(output({"--luns", "-n", "-o", "WWID", "-S", "native"}), "36001405c\n");
}

TEST_F(Listing, LunsAsJson)
{
    addSmallMachine();
    // libsmartcols 2.38 prints a list of nothing in another way than 2.41; lsblk does, too.
    std::string printed = output({"--luns", "--json", "-b", "/dev/mapper/mpatha"});
    const std::string ofNothing = "\"mountpoints\": [\n             null\n         ]";
    if (const std::size_t place = printed.find(ofNothing); place != std::string::npos) {
        printed.replace(place, ofNothing.size(), "\"mountpoints\": []");
    }
    EXPECT_EQ(printed,
              "{\n"
              "   \"luns\": [\n"
              "      {\n"
              "         \"wwid\": \"36001405a\",\n"
              "         \"size\": 1073741824,\n"
              "         \"vendor\": \"Maker\",\n"
              "         \"model\": \"Virtual disk\",\n"
              "         \"device\": \"/dev/mapper/mpatha\",\n"
              "         \"stack\": \"device-mapper\",\n"
              "         \"paths\": \"2/2\",\n"
              "         \"partitions\": [\n"
              "             \"/dev/mapper/mpatha-part1\"\n"
              "         ],\n"
              "         \"mountpoints\": [],\n"
              "         \"mark\": null\n"
              "      }\n"
              "   ]\n"
              "}\n");
}

TEST_F(Listing, ALunWithSeveralPathsAndNoMapIsMarked)
{
    machine.scsiDisk("sda", "0:0:0:1", "naa.6001405a").scsiDisk("sdb", "1:0:0:1", "naa.6001405a");
    machine.scsiDisk("sdc", "1:0:0:2", "naa.6001405c");
    EXPECT_EQ(output({"--luns", "-r", "-n", "-o", "WWID,DEVICE,PATHS,MARK"}),
              "36001405a /dev/sda 2/2 no-map\n"
              "36001405c /dev/sdc 1/1 \n");
    EXPECT_EQ(output({"--luns", "-m", "-n", "-o", "WWID"}), "36001405a\n");
}

TEST_F(Listing, ALunThatTwoStacksClaimIsMarked)
{
    addSmallMachine();
    machine.virtualDisk("emcpowera").record("emcpowera", "ID_SERIAL=36001405a\n");
    EXPECT_EQ(output({"--luns", "-m", "-r", "-n", "-o", "WWID,DEVICE,PATHS,MARK"}),
              "36001405a /dev/mapper/mpatha 2/2 two-stacks\n");
}

TEST_F(Listing, ThePathsOfANamespaceAreHiddenAndCountForItsLun)
{
    machine.nvme("nvme0n1").nvme("nvme0c0n1").nvme("nvme0c1n1");
    for (const char* const name : {"nvme0n1", "nvme0c0n1", "nvme0c1n1"}) {
        machine.attribute(name, "wwid", "eui.0025388b\n");
    }
    for (const char* const path : {"nvme0c0n1", "nvme0c1n1"}) {
        machine.attribute(path, "hidden", "1\n").remove(machine.placeOf(path) + "/dev");
    }
    EXPECT_EQ(output({"-a", "-n", "-o", "DEVICE"}), "/dev/nvme0n1\n");
    EXPECT_EQ(output({"--luns", "-r", "-n", "-o", "DEVICE,PATHS,MARK"}), "/dev/nvme0n1 2/2 \n");
}
