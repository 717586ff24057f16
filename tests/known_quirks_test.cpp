// What the audit takes for a known quirk: nothing but the answers that the quirk foretells. The answers here are made
// up, because the library does not give the wrong ones.
#include "tools/audit/known_quirks.h"

#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using kivclaim::machine::Machine;
using kivclaim::machine::Root;
using kivclaim::tools::AskedMachine;
using kivclaim::tools::AuditedDevice;
using kivclaim::tools::Difference;
using kivclaim::tools::KernelTruth;
using kivclaim::tools::Question;
using kivclaim::tools::VolumeListing;
using kivclaim::tools::VolumeListings;

namespace {

const char* kernelRelease = "6.1.0-18-amd64";

class KnownQuirks : public testing::Test {
protected:
    KnownQuirks() { kernelRelease = "6.1.0-18-amd64"; }

    // Another machine, without a device so far.
    tests::SysfsDirectory& newMachine()
    {
        folder = std::make_unique<tests::TemporaryFolder>();
        return directory.emplace(folder->path());
    }
    // What the kernel of that machine says about the device at `path`.
    void ask(const std::string& path)
    {
        machine.emplace(Machine::read(Root::recorded(folder->path()), KernelTruth::facts));
        device.path = path;
        device.kernel = KernelTruth(*machine, path);
    }
    void kernelHasMap(const std::string& name)
    {
        newMachine().mapping("dm-0", name, "mpath-36001", {});
        ask("/dev/mapper/" + name);
    }
    void kernelHasPartition(const std::string& name, unsigned int number, const std::string& map)
    {
        newMachine().mapping("dm-0", map, "mpath-36001", {});
        directory->mapping("dm-1", name, "part" + std::to_string(number) + "-mpath-36001", {"dm-0"});
        ask("/dev/mapper/" + name);
    }
    void kernelHasPartitionOne(const std::string& map)
    {
        kernelHasPartition(map + "_1", 1, map);
        ask("/dev/mapper/" + map);
    }
    void libraryClaims(const std::string& stack, unsigned int level)
    {
        device.library.stack = stack;
        device.library.level = level;
        device.library.wholeDevice = device.path;
    }
    void libraryTakesApart(const std::string& wholeDevice, unsigned int number)
    {
        libraryClaims("device-mapper", 16);
        device.library.isPartition = true;
        device.library.wholeDevice = wholeDevice;
        device.library.partition = number;
    }

    std::string quirkOf(Question question, const VolumeListing& remembered = {}, const VolumeListing& now = {})
    {
        Difference difference;
        difference.question = question;
        if (!device.kernel.partitions().empty()) {
            difference.partition = 1;
            difference.library = device.library.partitions.at(0).path;
        }
        device.differences = {difference};
        VolumeListings volumes(remembered, now);
        std::vector<AuditedDevice> devices = {device};
        explainDifferences(AskedMachine(), volumes, devices);
        return devices.at(0).differences.at(0).quirk;
    }

    std::string quirkOfPartition(const std::string& answer)
    {
        device.library.partitions = {{1, answer}};
        return quirkOf(Question::partition);
    }

    // What was printed before the tool failed does not count.
    const VolumeListing failed = {true, {"/dev/mapper/vg00-lvol1"}};
    const VolumeListing lvol1 = {false, {"/dev/mapper/vg00-lvol1"}};
    AuditedDevice device;

private:
    std::unique_ptr<tests::TemporaryFolder> folder;
    std::optional<tests::SysfsDirectory> directory;
    std::optional<Machine> machine;
};

}  // namespace

// In the place of the C library's.
extern "C" int uname(utsname* system)
{
    std::snprintf(system->release, sizeof system->release, "%s", kernelRelease);
    return 0;
}

TEST_F(KnownQuirks, ADiskOfAnotherKindThatIsClaimedAsNativeIsNoKnownQuirk)
{
    newMachine().virtualDisk("xvda").virtualDisk("sd0").link("/srv/dev/sda", "/dev/xvda");
    ask("/dev/xvda");
    libraryClaims("native", 2);
    EXPECT_EQ(quirkOf(Question::claim), "");
    ask("/dev/sd0");
    EXPECT_EQ(quirkOf(Question::claim), "");
    ask("/srv/dev/sda");
    EXPECT_EQ(quirkOf(Question::claim), "prefix-anywhere");
}

TEST_F(KnownQuirks, ANameWithoutADeviceThatIsNotClaimedByItsNameIsNoKnownQuirk)
{
    newMachine();
    ask("/dev/nothing");
    libraryClaims("powerpath", 16);
    EXPECT_EQ(quirkOf(Question::claim), "");
    device.path = "/dev/emcpowerx";
    EXPECT_EQ(quirkOf(Question::claim), "name-decides");
}

TEST_F(KnownQuirks, ALinkThatIsNotClaimedThoughItsNameWouldDecideIsNoKnownQuirk)
{
    newMachine().mapping("dm-0", "mpatha", "mpath-36001", {}).link("/dev/mapper/link", "mpatha");
    ask("/dev/mapper/link");
    device.library.stack = "none";
    EXPECT_EQ(quirkOf(Question::claim), "");
    device.path = "/dev/disk/by-id/link";
    EXPECT_EQ(quirkOf(Question::claim), "name-decides");
}

TEST_F(KnownQuirks, AClaimAtAnotherLevelIsNoKnownQuirk)
{
    newMachine().scsiDisk("sda", "0:0:0:0").multipathMap("dm-0", "mpatha", "36001", {"sda"});
    ask("/dev/sda");
    libraryClaims("native", 16);
    EXPECT_EQ(quirkOf(Question::claim), "");
    libraryClaims("native", 2);
    EXPECT_EQ(quirkOf(Question::claim), "path-of-a-map");
}

TEST_F(KnownQuirks, AVolumeThatIsClaimedThoughTheLibraryHasListedItIsNoKnownQuirk)
{
    newMachine().volume("dm-0", "vg00-lvol1", {});
    ask("/dev/mapper/vg00-lvol1");
    libraryClaims("device-mapper", 16);
    EXPECT_EQ(quirkOf(Question::claim, lvol1, lvol1), "");
    EXPECT_EQ(quirkOf(Question::claim, {}, lvol1), "stale-list");
    EXPECT_EQ(quirkOf(Question::claim, failed, lvol1), "failed-listing");
}

TEST_F(KnownQuirks, AMapThatIsRefusedThoughNoVolumeIsListedByItsNameIsNoKnownQuirk)
{
    kernelHasMap("vg00-lvol1");
    device.library.stack = "none";
    EXPECT_EQ(quirkOf(Question::claim), "");
    EXPECT_EQ(quirkOf(Question::claim, failed, failed), "");
    EXPECT_EQ(quirkOf(Question::claim, lvol1, {}), "stale-list");
    EXPECT_EQ(quirkOf(Question::claim, lvol1, lvol1), "dashed-volume");
}

TEST_F(KnownQuirks, AOneDigitPartitionThatIsNotRecognisedIsNoKnownQuirk)
{
    kernelHasPartition("mpatha-part1", 1, "mpatha");
    libraryClaims("device-mapper", 16);
    EXPECT_EQ(quirkOf(Question::isPartition), "");
    kernelHasPartition("mpatha-part12", 12, "mpatha");
    libraryClaims("device-mapper", 16);
    EXPECT_EQ(quirkOf(Question::isPartition), "missing-neighbour");
    kernelHasPartition("mpatha_part12", 12, "mpatha");
    libraryClaims("device-mapper", 16);
    EXPECT_EQ(quirkOf(Question::isPartition), "missing-neighbour");
}

TEST_F(KnownQuirks, AMapThatIsTakenForAPartitionWithoutTheNameOfOneIsNoKnownQuirk)
{
    kernelHasMap("mpath7");
    libraryTakesApart("/dev/mapp", 7);
    EXPECT_EQ(quirkOf(Question::isPartition), "");
    kernelHasMap("a-part7");
    libraryTakesApart("/dev/mapper/a", 7);
    EXPECT_EQ(quirkOf(Question::isPartition), "partition-like-name");
}

TEST_F(KnownQuirks, APartitionThatIsTakenApartInAnotherWayIsNoKnownQuirk)
{
    kernelHasPartition("a-part3", 3, "mpatha");
    libraryTakesApart("/dev/mapper/", 3);
    EXPECT_EQ(quirkOf(Question::whole), "");
    libraryTakesApart("/dev/mapper/a", 2);
    EXPECT_EQ(quirkOf(Question::whole), "");
    libraryTakesApart("/dev/mapper/a", 3);
    EXPECT_EQ(quirkOf(Question::whole), "six-characters");
    kernelHasPartition("mpatha-part10", 10, "mpatha");
    libraryClaims("device-mapper", 16);
    EXPECT_EQ(quirkOf(Question::whole), "");
}

TEST_F(KnownQuirks, ANativePartitionThatIsNotTakenApartIsNoKnownQuirk)
{
    newMachine().scsiDisk("sda", "0:0:0:0").partition("sda", 1);
    ask("/dev/sda1");
    libraryClaims("native", 2);
    EXPECT_EQ(quirkOf(Question::isPartition), "");
    device.library.isPartition = true;
    EXPECT_EQ(quirkOf(Question::whole), "");
}

TEST_F(KnownQuirks, APartitionPathThatTheReleaseDoesNotDecideOnIsNoKnownQuirk)
{
    kernelHasPartitionOne("mpatha");
    libraryClaims("device-mapper", 16);
    EXPECT_EQ(quirkOfPartition("/dev/mapper/mpatha-part1"), "release-decides");
    EXPECT_EQ(quirkOfPartition("/dev/mapper/mpatha_part1"), "");
    kernelRelease = "3.0.101";
    EXPECT_EQ(quirkOfPartition("/dev/mapper/mpatha_part1"), "release-decides");
    EXPECT_EQ(quirkOfPartition("/dev/mapper/mpatha-part1"), "");
    kernelRelease = "2.6.27";
    EXPECT_EQ(quirkOfPartition("/dev/mapper/mpatha_part1"), "release-decides");
    kernelRelease = "3.12.0";
    EXPECT_EQ(quirkOfPartition("/dev/mapper/mpatha-part1"), "release-decides");
}

TEST_F(KnownQuirks, OnAnUnknownReleaseThePathItselfIsTakenForThePartition)
{
    kernelHasPartitionOne("mpatha");
    libraryClaims("device-mapper", 16);
    for (const char* const release : {"3.10.0-1160.el7", "3.11.9", "2.6.26", "2.6"}) {
        kernelRelease = release;
        EXPECT_EQ(quirkOfPartition("/dev/mapper/mpatha"), "unknown-release");
        EXPECT_EQ(quirkOfPartition("/dev/mapper/mpatha-part1"), "");
    }
    kernelHasPartitionOne("mpath7");
    EXPECT_EQ(quirkOfPartition("/dev/mapper/mpath7p1"), "release-decides");
}

TEST_F(KnownQuirks, OnAnUnknownReleaseAPartitionNamedPartIsNotTakenApart)
{
    kernelRelease = "3.10.0";
    kernelHasPartition("mpatha-part3", 3, "mpatha");
    libraryTakesApart("/dev/mapper/mpatha-part3", 0);
    EXPECT_EQ(quirkOf(Question::whole), "release-decides");
    libraryTakesApart("/dev/mapper/mpath", 3);
    EXPECT_EQ(quirkOf(Question::whole), "");
}

// As for a user that may not open the nodes of devices: no user can open a socket.
TEST_F(KnownQuirks, ANeighbourCountsWhenItCanBeOpened)
{
    const tests::TemporaryFolder folder;
    const std::string place = folder.path() + "/dev/mapper/";
    ASSERT_EQ(mkdir((folder.path() + "/dev").c_str(), 0700), 0);
    ASSERT_EQ(mkdir(place.c_str(), 0700), 0);
    kernelHasPartition("mpatha12", 12, "mpatha");
    device.path = place + "mpatha12";
    libraryClaims("device-mapper", 16);

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%smpatha1", place.c_str());
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(quirkOf(Question::isPartition), "prefix-anywhere");
    close(listener);
    ASSERT_EQ(unlink(address.sun_path), 0);
    folder.addFile("dev/mapper/mpatha1", "");
    EXPECT_EQ(quirkOf(Question::isPartition), "");
}
