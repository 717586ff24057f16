// `kivclaim record`, and what a recording shows with --sysroot: the same bytes as the machine that it was taken of.
#include "tests/mock_machine.h"
#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using testing::HasSubstr;
using tests::Ended;

namespace {

constexpr char volumes[] =
    "  --- Logical volume ---\n  LV Path                /dev/vg00/lvol1\n  LV Name                lvol1\n"
    "  VG Name                vg00\n   \n";

void addDevices(tests::SysfsDirectory& machine)
{
    machine.scsiDisk("sda", "0:0:0:0", "naa.6001405aa01").scsiDisk("sdb", "1:0:0:0", "naa.6001405aa01");
    machine.scsiDisk("sdc", "0:0:0:1").partition("sdc", 1).partition("sdc", 12).virtualDisk("emcpowera");
    machine.multipathMap("dm-0", "mpatha", "36001405aa01", {"sda", "sdb"}).multipathPartition("dm-1", "dm-0", 1);
    machine.volume("dm-2", "vg00-lvol1", {"sdc1"}).volume("dm-3", "vg--a-lv1", {"sdc12"});
    machine.mapping("dm-4", "plain", "CRYPT-LUKS2-aa-plain", {"dm-2"}).virtualDisk("cciss/c0d0");
    machine.link("/dev/disk/by-id/wwn-0x6001405aa01", "../../sda").link("/dev/vg00/lvol1", "../dm-2");
    machine.link("/dev/absolute", "/dev/sdc").mount("dm-4", "/data");
    machine.attribute("sdb", "device/state", "offline\n");
}

std::string contentOf(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// Every command that answers, each as it is called after --sysroot, with all records of the library.
std::vector<std::vector<std::string>> questions(const std::vector<std::string>& devices)
{
    std::vector<std::vector<std::string>> all = {{"list", "-O"}, {"list", "-a", "-J", "-O"}, {"list", "--luns"},
                                                 {"audit"},      {"audit", "--json"},        {"prefixes"}};
    for (const std::string& device : devices) {
        all.push_back({"explain", device});
        all.push_back({"claim", device});
        all.push_back({"is-partition", device});
        all.push_back({"whole", device});
        all.push_back({"partition", device, "3"});
    }
    for (std::vector<std::string>& question : all) {
        question.insert(question.begin(), {"--trace", "6"});
    }
    return all;
}

std::string joined(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words) {
        line += " " + word;
    }
    return line;
}

// Records begin with the time, the level and the numbers of process and thread.
std::string withoutTimes(const std::string& text)
{
    static const std::regex beginning("(^|\n)[0-9-]{10} [0-9:.]{12} (\\w+) +\\d+:\\d+ ");
    return std::regex_replace(text, beginning, "$1$2 ");
}

class Recording : public testing::Test {
protected:
    Recording()
    {
        addDevices(machine);
        machine.file("proc/sys/kernel/osrelease", "6.1.0-18-amd64\n");
        machine.file("kivclaim/commands/sbin/lvdisplay/output", volumes);
    }

    static tests::Process kivclaim(std::vector<std::string> arguments)
    {
        tests::Process process(KIVCLAIM_COMMAND, std::move(arguments));
        process.environment("LC_ALL", "C");
        return process;
    }

    // The recorded machine: a root directory in the place of this machine's.
    Ended recordedAs(const std::string& name, std::vector<std::string> options = {}) const
    {
        options.insert(options.begin(), {"--sysroot", root.path(), "record"});
        options.push_back(place(name));
        return kivclaim(options).run();
    }
    std::string place(const std::string& name) const { return recordings.path() + "/" + name; }

    static void expectSame(const Ended& one, const Ended& other, const std::string& question)
    {
        EXPECT_EQ(one.output, other.output) << question;
        EXPECT_EQ(withoutTimes(one.errors), withoutTimes(other.errors)) << question;
        EXPECT_EQ(one.status, other.status) << question;
    }

    void expectSameAnswers(const std::string& recording, const std::vector<std::string>& devices) const
    {
        for (std::vector<std::string> question : questions(devices)) {
            std::vector<std::string> replayed = question;
            question.insert(question.begin(), {"--sysroot", root.path()});
            replayed.insert(replayed.begin(), {"--sysroot", recording});
            expectSame(kivclaim(replayed).run(), kivclaim(question).run(), joined(question));
        }
    }

    tests::TemporaryFolder root;
    tests::SysfsDirectory machine{root.path()};
    tests::TemporaryFolder recordings;
};

std::vector<std::string> namesIn(const std::string& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

}  // namespace

TEST_F(Recording, InADirectoryAnswersEveryCommandLikeTheMachine)
{
    const Ended ended = recordedAs("machine");
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
    expectSameAnswers(place("machine"),
                      {"/dev/sda", "/dev/sdc12", "/dev/mapper/mpatha", "/dev/emcpowera", "/dev/mapper/mpatha-part1",
                       "/dev/mapper/vg00-lvol1", "/dev/mapper/no", "/dev/mapper/vg--a-lv1", "/dev/vg00/lvol1",
                       "/dev/disk/by-id/wwn-0x6001405aa01", "/dev/cciss/c0d0", "/dev/absolute"});
}

TEST_F(Recording, InAFileAnswersEveryCommandLikeTheMachine)
{
    ASSERT_EQ(recordedAs("machine.tar.zst").status, 0);
    ASSERT_TRUE(std::filesystem::is_regular_file(place("machine.tar.zst")));
    expectSameAnswers(place("machine.tar.zst"), {"/dev/sdc12", "/dev/mapper/mpatha-part1", "/dev/mapper/vg00-lvol1"});
}

TEST_F(Recording, OfARecordingIsTheSameRecording)
{
    ASSERT_EQ(recordedAs("first.tar.zst").status, 0);
    ASSERT_EQ(kivclaim({"--sysroot", place("first.tar.zst"), "record", place("second.tar.zst")}).run().status, 0);
    EXPECT_EQ(contentOf(place("first.tar.zst")), contentOf(place("second.tar.zst")));
}

TEST_F(Recording, HoldsNothingOfADirectoryOutsideTheRoot)
{
    recordings.addFile("outside", "text");
    std::filesystem::remove_all(root.path() + "/kivclaim");
    std::filesystem::create_directory_symlink(recordings.path(), root.path() + "/kivclaim");
    ASSERT_EQ(recordedAs("machine").status, 0);
    EXPECT_THAT(namesIn(place("machine/kivclaim")), testing::ElementsAre("manifest.json"));
}

TEST_F(Recording, IsReadByLsblkDeviceByDevice)
{
    ASSERT_EQ(recordedAs("machine").status, 0);
    const auto lsblk = [](const std::string& root) {
        return tests::Process("/usr/bin/lsblk", {"--sysroot", root, "-a", "-P", "-O"})
            .environment("LC_ALL", "C.UTF-8")
            .run();
    };
    const Ended ended = lsblk(place("machine"));
    EXPECT_THAT(ended.output, HasSubstr("NAME=\"mpatha\""));
    EXPECT_THAT(ended.output, HasSubstr("MOUNTPOINTS=\"/data\""));
    EXPECT_EQ(ended.output, lsblk(root.path()).output);
}

TEST_F(Recording, LeavesNothingBesideItself)
{
    recordedAs("machine.tar.zst");
    recordedAs("machine");
    EXPECT_THAT(namesIn(recordings.path()), testing::UnorderedElementsAre("machine.tar.zst", "machine"));
}

TEST_F(Recording, IsReadableByItsMakerOnly)
{
    recordedAs("machine.tar.zst");
    recordedAs("machine");
    struct stat status {};
    ASSERT_EQ(stat(place("machine.tar.zst").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    ASSERT_EQ(stat(place("machine").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(Recording, ReplacesAnEarlierFileAndAnEmptyDirectoryOnly)
{
    recordings.addFile("machine.tar.zst", "something");
    std::filesystem::create_directory(place("machine"));
    EXPECT_EQ(recordedAs("machine.tar.zst").status, 0);
    EXPECT_EQ(recordedAs("machine").status, 0);
    const Ended again = recordedAs("machine");
    EXPECT_EQ(again.errors, "kivclaim: '" + place("machine") +
                                "' is there already; give a new name, which for a file ends with .tar.zst\n");
    EXPECT_EQ(again.status, 2);
    recordings.addFile("note", "kept");
    EXPECT_EQ(recordedAs("note").status, 2);
    EXPECT_EQ(contentOf(place("note")), "kept");
    ASSERT_EQ(symlink("note", place("link.tar.zst").c_str()), 0);
    EXPECT_EQ(recordedAs("link.tar.zst").status, 2);
    EXPECT_EQ(contentOf(place("note")), "kept");
}

TEST_F(Recording, IsNotStartedWhereItCannotBeWritten)
{
    const Ended ended = recordedAs("no/such/machine.tar.zst");
    EXPECT_EQ(ended.errors, "kivclaim: cannot write the recording '" + place("no/such/machine.tar.zst") + "': '" +
                                place("no/such/.kivclaim-XXXXXX") +
                                "' cannot be made (No such file or directory); give a name in a directory with "
                                "space left that you may write to\n");
    EXPECT_EQ(ended.status, 2);
}

TEST_F(Recording, UnpackedForACommandIsRemovedWithIt)
{
    recordedAs("machine.tar.zst");
    const tests::TemporaryFolder temporary;
    const auto list = [&] {
        tests::Process process = kivclaim({"--sysroot", place("machine.tar.zst"), "claim", "-"});
        process.environment("TMPDIR", temporary.path());
        return process;
    };
    EXPECT_EQ(list().reads("/dev/sda\n").run().output, "2 native /dev/sda\n");
    EXPECT_THAT(namesIn(temporary.path()), testing::IsEmpty());
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
        tests::Process process = list();
        process.start();
        process.write("/dev/sda\n");
        ASSERT_EQ(process.readLine(), "2 native /dev/sda");
        EXPECT_EQ(namesIn(temporary.path()).size(), 1U);
        process.signal(signal);
        EXPECT_EQ(process.finish().signal, signal);
        // Another process removes it.
        for (int i = 0; i < 500 && !namesIn(temporary.path()).empty(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_THAT(namesIn(temporary.path()), testing::IsEmpty()) << signal;
    }
}

// A machine that this process seems to run on: umockdev plays its devices.
class LiveRecording : public testing::Test {
protected:
    LiveRecording()
    {
        machine.disk("sda").disk("sdb").disk("sdc").partition("sdc", "sdc1", 1).partition("sdc", "sdc12", 12);
        machine.mapped("dm-0", "mpatha", "mpath-36001405aa01", {"sda", "sdb"});
        machine.mapped("dm-1", "mpatha-part1", "part1-mpath-36001405aa01", {"dm-0"});
        machine.mapped("dm-2", "vg00-lvol1", "LVM-" + std::string(64, 'a'), {"sdc1"});
        machine.mappedWithoutName("dm-3", "hidden", "CRYPT-LUKS2-aa-hidden");
        tools.addFile("listing", volumes);
        tools.addScript("lvdisplay", "/bin/cat /usr/sbin/listing\necho a warning >&2\n");
    }

    Ended ask(std::vector<std::string> arguments) const
    {
        return machine.process(KIVCLAIM_COMMAND, std::move(arguments))
            .environment("LC_ALL", "C")
            .sees(tools.path(), "/usr/sbin")
            .run();
    }

    static Ended kivclaimOf(std::vector<std::string> arguments)
    {
        return tests::Process(KIVCLAIM_COMMAND, std::move(arguments)).environment("LC_ALL", "C").run();
    }

    tests::MockMachine machine;
    tests::TemporaryFolder tools;
    tests::TemporaryFolder recordings;
};

TEST_F(LiveRecording, AnswersLikeTheMachine)
{
    const std::string recording = recordings.path() + "/machine.tar.zst";
    const Ended recorded = ask({"record", recording});
    EXPECT_EQ(recorded.errors, "");
    ASSERT_EQ(recorded.status, 0);
    const std::vector<std::string> devices = {"/dev/sdc12", "/dev/mapper/mpatha-part1", "/dev/dm-3",
                                              "/dev/mapper/vg00-lvol1"};
    for (std::vector<std::string> question : questions(devices)) {
        const Ended live = ask(question);
        question.insert(question.begin(), {"--sysroot", recording});
        tests::Process replay(KIVCLAIM_COMMAND, question);
        const Ended replayed = replay.environment("LC_ALL", "C").run();
        EXPECT_EQ(replayed.output, live.output) << joined(question);
        EXPECT_EQ(withoutTimes(replayed.errors), withoutTimes(live.errors)) << joined(question);
        EXPECT_EQ(replayed.status, live.status) << joined(question);
    }
}

TEST_F(LiveRecording, ReportsAFailedListing)
{
    tools.addScript("lvdisplay", "echo no rights >&2\nexit 5\n");
    const std::string recording = recordings.path() + "/machine";
    const Ended recorded = ask({"record", recording});
    EXPECT_EQ(recorded.errors, "kivclaim: /sbin/lvdisplay failed with 5, and so it is recorded\n");
    EXPECT_EQ(recorded.status, 0);
    const std::string place = recording + "/kivclaim/commands/sbin/lvdisplay/";
    EXPECT_EQ(contentOf(place + "output"), "");
    EXPECT_EQ(contentOf(place + "errors"), "no rights\n");
    EXPECT_EQ(contentOf(place + "status"), "5\n");
}

// With a volume manager that only the command sees.
class VolumeManagerRecording : public LiveRecording {
protected:
    VolumeManagerRecording() { std::filesystem::copy_file(KIVCLAIM_ZTKIVADM, tools.path() + "/ztkivadm"); }

    Ended recordDisks(const std::string& mood, std::vector<std::string> arguments)
    {
        state = "path kiv0_1 sdc ENABLED PRIMARY\npath kiv0_1 sdd ENABLED(A) SECONDARY\n" + mood;
        tools.addFile("state", state);
        arguments.insert(arguments.begin(), "record");
        arguments.push_back(recordings.path() + "/machine");
        return machine.process(KIVCLAIM_COMMAND, arguments)
            .environment("LC_ALL", "C")
            .environment("KIVCLAIM_VM_STATE", tools.path() + "/state")
            .sees(tools.path(), "/usr/sbin")
            .run();
    }
    std::string recorded(const std::string& query, const std::string& file) const
    {
        return contentOf(recordings.path() + "/machine/kivclaim/commands/usr/sbin/ztkivadm   " + query + "/" + file);
    }

    std::string state;
};

TEST_F(VolumeManagerRecording, HoldsTheNodeOfADiskAndThePathsOfTheNode)
{
    const Ended ended = recordDisks("", {"--volume-manager", "sdc"});
    EXPECT_EQ(ended.errors, "");
    ASSERT_EQ(ended.status, 0);
    EXPECT_EQ(recorded("getkivnode  nodename=sdc", "output"),
              "NAME      STATE      PATHS\n--------------------------\nkiv0_1    ENABLED    2\n");
    EXPECT_EQ(recorded("getkivnode  nodename=sdc", "status"), "0\n");
    EXPECT_EQ(recorded("getsubpaths  kivnodename=kiv0_1", "output"),
              "NAME    STATE         TYPE         NODE\n---------------------------------------\n"
              "sdc     ENABLED       PRIMARY      kiv0_1\nsdd     ENABLED(A)    SECONDARY    kiv0_1\n");
    EXPECT_EQ(recorded("getsubpaths  kivnodename=kiv0_1", "status"), "0\n");
    EXPECT_EQ(contentOf(tools.path() + "/state"), state) << "nothing was changed";
    const Ended again = kivclaimOf({"--sysroot", recordings.path() + "/machine", "list", "-n", "-o", "DEVICE"});
    EXPECT_EQ(again.status, 0) << again.errors;
}

TEST_F(VolumeManagerRecording, TellsOfADiskThatItDoesNotKnow)
{
    const Ended ended = recordDisks("", {"--volume-manager", "sda", "--volume-manager", "sdd"});
    EXPECT_EQ(ended.errors,
              "kivclaim: /usr/sbin/ztkivadm   getkivnode  nodename=sda failed with 1, and so it is recorded\n"
              "kivclaim: the volume manager names no node of sda, so its paths are not recorded\n");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(recorded("getkivnode  nodename=sda", "errors"), "no node has a path [sda]\n");
    EXPECT_EQ(recorded("getkivnode  nodename=sda", "status"), "1\n");
    EXPECT_EQ(recorded("getsubpaths  kivnodename=kiv0_1", "status"), "0\n");
}

// Its name would be that of a file.
TEST_F(VolumeManagerRecording, ANodeWithAStrangeNameIsNotAskedAbout)
{
    std::filesystem::remove(tools.path() + "/ztkivadm");
    tools.addScript("ztkivadm", "printf 'NAME\\n----\\n \\n../../x ENABLED\\n'\n");
    const Ended ended = recordDisks("", {"--volume-manager", "sdc"});
    EXPECT_EQ(ended.errors, "kivclaim: the volume manager names no node of sdc, so its paths are not recorded\n");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(kivclaimOf({"--sysroot", recordings.path() + "/machine", "list"}).status, 0);
}

// The native module skips blank rows, too.
TEST_F(VolumeManagerRecording, TheFirstRowThatIsNotBlankNamesTheNode)
{
    std::filesystem::remove(tools.path() + "/ztkivadm");
    tools.addScript("ztkivadm", "printf 'NAME\\n----\\n \\n  kiv7 ENABLED\\n'\n");
    EXPECT_EQ(recordDisks("", {"--volume-manager", "sdc"}).errors, "");
    EXPECT_EQ(recorded("getsubpaths  kivnodename=kiv7", "status"), "0\n");
}

TEST_F(VolumeManagerRecording, WithoutItsToolsSaysSo)
{
    std::filesystem::remove(tools.path() + "/ztkivadm");
    const Ended ended = recordDisks("", {"--volume-manager", "sdc"});
    EXPECT_EQ(ended.errors,
              "kivclaim: /usr/sbin/ztkivadm is not installed, and so it is recorded\n"
              "kivclaim: the volume manager names no node of sdc, so its paths are not recorded\n");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(recorded("getkivnode  nodename=sdc", "status"), "missing\n");
}

TEST_F(VolumeManagerRecording, RedactedHoldsNothingOfIt)
{
    ASSERT_EQ(recordDisks("", {"--redact", "--volume-manager", "sdc"}).status, 0);
    EXPECT_FALSE(std::filesystem::exists(recordings.path() + "/machine/kivclaim/commands/usr"));
}

TEST_F(VolumeManagerRecording, TakesNamesOfDisksOnThisMachineOnly)
{
    for (const char* const name : {"/dev/sdc", "../sdc", "sdc x", ""}) {
        const Ended ended = recordDisks("", {"--volume-manager", name});
        EXPECT_EQ(ended.errors, "kivclaim: '" + std::string(name) + "' is no name of a disk; give one such as sdc\n");
        EXPECT_EQ(ended.status, 2);
    }
    const Ended ended = recordDisks("", {"--sysroot", tools.path(), "--volume-manager", "sdc"});
    EXPECT_EQ(ended.errors,
              "kivclaim: --volume-manager asks the volume manager of this machine; leave out --sysroot\n");
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(namesIn(recordings.path()), testing::IsEmpty());
}

// What was recorded of nodes is all that there was of them.
class RecordedNodes : public Recording {
protected:
    RecordedNodes()
    {
        machine.file("kivclaim/nodes",
                     "r 8:0 /dev/sda\n- 8:16 /dev/sdb\nr 8:0 /dev/mapper/mpatha\nr - /dev/mapper/with\\040blank\n");
        machine.file("proc/sys/kernel/osrelease", "3.5.0\n");
    }
    Ended ask(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"--sysroot", root.path()});
        return kivclaim(arguments).run();
    }
};

TEST_F(RecordedNodes, AMissingNodeIsMissing)
{
    EXPECT_EQ(ask({"partition", "/dev/mapper/with blan", "3"}).output, "/dev/mapper/with blan\n");
    EXPECT_EQ(ask({"is-partition", "/dev/mapper/mpatha1"}).output, "yes /dev/mapper/mpatha1\n");
    EXPECT_EQ(ask({"is-partition", "/dev/mapper/plain1"}).output, "no /dev/mapper/plain1\n");
}

TEST_F(RecordedNodes, ANodeThatTheRecordingUserCouldNotReadCannotBeOpened)
{
    const std::string path = "/x/../dev/mapper/../sdb1";
    EXPECT_EQ(ask({"is-partition", path}).output, "no " + path + "\n");
    machine.file("kivclaim/nodes", "r 8:16 /dev/sdb\n");
    EXPECT_EQ(ask({"is-partition", path}).output, "yes " + path + "\n");
}

TEST_F(RecordedNodes, TheNumberOfTheNodeDecides)
{
    EXPECT_THAT(ask({"audit", "/dev/mapper/mpatha"}).output, HasSubstr("name-decides"));
}
