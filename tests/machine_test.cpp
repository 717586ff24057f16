// What the model tells of machines that are written as directories.
#include "machine/machine.h"
#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

using namespace kivclaim::machine;
using testing::ElementsAre;
using testing::IsEmpty;
using tests::SysfsDirectory;

namespace {

constexpr char someWwid[] = "naa.60014050000000000000000000000001";

class MachineTest : public testing::Test {
protected:
    Machine read(Facts facts = allFacts) const { return Machine::read(Root::recorded(folder.path()), facts); }

    // Two paths with a map, a partition of the map, and a volume on that.
    void addStack()
    {
        directory.scsiDisk("sda", "0:0:0:1", someWwid).scsiDisk("sdb", "1:0:0:1", someWwid);
        directory.partition("sda", 1).partition("sdb", 1);
        directory.multipathMap("dm-0", "mpatha", "360014050000000000000000000000001", {"sda", "sdb"});
        directory.multipathPartition("dm-1", "dm-0", 1);
        directory.volume("dm-2", "vg-data", {"dm-1"});
    }

    std::vector<std::string> names(const Machine& machine) const
    {
        std::vector<std::string> found;
        for (const Device& device : machine.devices()) {
            found.emplace_back(device.kernelName);
        }
        return found;
    }

    template <class Indexes>
    std::vector<std::string> names(const Machine& machine, const Indexes& indexes) const
    {
        std::vector<std::string> found;
        for (const DeviceIndex i : indexes) {
            found.emplace_back(machine.devices()[i].kernelName);
        }
        return found;
    }

    static const Device& device(const Machine& machine, const std::string& name)
    {
        const Device* const found = machine.byKernelName(name);
        if (found == nullptr) {
            throw std::runtime_error("no device " + name);
        }
        return *found;
    }

    static std::string kernelName(const Device* device)
    {
        return device != nullptr ? std::string(device->kernelName) : "none";
    }

private:
    tests::TemporaryFolder folder;

protected:
    SysfsDirectory directory{folder.path()};
};

std::vector<std::string> texts(const List<std::string_view>& list)
{
    return {list.begin(), list.end()};
}

}  // namespace

TEST_F(MachineTest, DevicesAreInNaturalOrder)
{
    directory.virtualDisk("loop10").virtualDisk("loop9").scsiDisk("sda", "0:0:0:0");
    directory.partition("sda", 10).partition("sda", 9);
    EXPECT_THAT(names(read()), ElementsAre("loop9", "loop10", "sda", "sda9", "sda10"));
}

TEST_F(MachineTest, ScsiDiskHasItsAttributesWithoutTheBlanksAround)
{
    directory.scsiDisk("sda", "2:0:3:17", someWwid).attribute("sda", "removable", "1\n").attribute("sda", "ro", "1\n");
    directory.attribute("sda", "device/serial", "  S42 \n");
    const Machine machine = read();
    const Device& disk = device(machine, "sda");
    EXPECT_EQ(disk.kind, Kind::scsiDisk);
    EXPECT_EQ(disk.node, "/dev/sda");
    EXPECT_EQ(disk.number, (DeviceNumber{8, 0}));
    EXPECT_EQ(disk.type, "disk");
    EXPECT_EQ(disk.bytes, 1073741824U);
    EXPECT_TRUE(disk.readOnly);
    EXPECT_TRUE(disk.removable);
    EXPECT_EQ(disk.scsiAddress, "2:0:3:17");
    EXPECT_EQ(disk.state, "running");
    EXPECT_EQ(disk.vendor, "Maker");
    EXPECT_EQ(disk.model, "Virtual disk");
    EXPECT_EQ(disk.revision, "2.0");
    EXPECT_EQ(disk.serial, "S42");
    EXPECT_EQ(disk.wwid, "360014050000000000000000000000001");
    EXPECT_EQ(disk.wwn, "0x60014050000000000000000000000001");
    EXPECT_EQ(disk.marks, noMark);
}

TEST_F(MachineTest, PartitionKnowsItsDiskAndNumber)
{
    directory.scsiDisk("sda", "0:0:0:0").partition("sda", 12).partition("sda", 3).attribute("sda", "removable", "1");
    const Machine machine = read();
    const Device& partition = device(machine, "sda12");
    EXPECT_EQ(partition.kind, Kind::partition);
    EXPECT_EQ(partition.type, "part");
    EXPECT_EQ(partition.partition, 12U);
    EXPECT_EQ(kernelName(&machine.wholeOf(partition)), "sda");
    EXPECT_EQ(partition.scsiAddress, "");
    EXPECT_TRUE(partition.removable);
    EXPECT_THAT(names(machine, device(machine, "sda").partitions), ElementsAre("sda3", "sda12"));
}

TEST_F(MachineTest, NamespaceOfNvmeHasTheControllersModelAndState)
{
    directory.nvme("nvme0n1").partition("nvme0n1", 2);
    const Machine machine = read();
    const Device& space = device(machine, "nvme0n1");
    EXPECT_EQ(space.kind, Kind::nvme);
    EXPECT_EQ(space.model, "Fast disk");
    EXPECT_EQ(space.serial, "S1234");
    EXPECT_EQ(space.revision, "1.0");
    EXPECT_EQ(space.state, "live");
    EXPECT_EQ(space.wwid, "eui.00253000nvme0n1");
    EXPECT_EQ(space.transport, "nvme");
    EXPECT_EQ(kernelName(&machine.wholeOf(device(machine, "nvme0n1p2"))), "nvme0n1");
}

TEST_F(MachineTest, MapOfPathsIsFoundFromBothSides)
{
    addStack();
    directory.attribute("sdb", "device/state", "offline\n");
    const Machine machine = read();
    const Device& map = device(machine, "dm-0");
    EXPECT_EQ(map.kind, Kind::multipathMap);
    EXPECT_EQ(map.node, "/dev/mapper/mpatha");
    EXPECT_EQ(map.type, "mpath");
    EXPECT_EQ(map.state, "running");
    EXPECT_EQ(map.wwid, device(machine, "sda").wwid);
    EXPECT_EQ(kernelName(machine.mapOf(device(machine, "sda"))), "dm-0");
    EXPECT_EQ(kernelName(machine.mapOf(device(machine, "sda1"))), "dm-0");
    EXPECT_EQ(machine.mapOf(map), nullptr);
    const std::vector<const Device*> paths = machine.pathsOf(map);
    ASSERT_EQ(paths.size(), 2U);
    EXPECT_EQ(paths[0]->state, "running");
    EXPECT_EQ(kernelName(paths[1]), "sdb");
    EXPECT_EQ(paths[1]->state, "offline");
    EXPECT_THAT(machine.pathsOf(device(machine, "dm-2")), IsEmpty());
}

TEST_F(MachineTest, PartitionOfAMapBelongsToTheMap)
{
    addStack();
    const Machine machine = read();
    const Device& partition = device(machine, "dm-1");
    EXPECT_EQ(partition.kind, Kind::multipathPartition);
    EXPECT_EQ(partition.type, "part");
    EXPECT_EQ(partition.partition, 1U);
    EXPECT_EQ(kernelName(&machine.wholeOf(partition)), "dm-0");
    EXPECT_THAT(names(machine, device(machine, "dm-0").partitions), ElementsAre("dm-1"));
    EXPECT_THAT(names(machine, device(machine, "dm-0").holders), ElementsAre("dm-1"));
}

TEST_F(MachineTest, LogicalPartitionBelongsToTheMapBelowTheExtendedOne)
{
    addStack();
    directory.mapping("dm-3", "mpatha-part5", "part5-mpath-360014050000000000000000000000001", {"dm-1"});
    const Machine machine = read();
    EXPECT_EQ(kernelName(&machine.wholeOf(device(machine, "dm-3"))), "dm-0");
    EXPECT_THAT(names(machine, device(machine, "dm-0").partitions), ElementsAre("dm-1", "dm-3"));
}

TEST_F(MachineTest, PartitionMappedFromADiskIsNotOneOfTheKernelsPartitions)
{
    directory.scsiDisk("sda", "0:0:0:0").partition("sda", 1);
    directory.mapping("dm-0", "sda-part1", "part1-devnode_8:0_abc", {"sda"});
    const Machine machine = read();
    EXPECT_EQ(kernelName(&machine.wholeOf(device(machine, "dm-0"))), "sda");
    EXPECT_THAT(names(machine, device(machine, "sda").partitions), ElementsAre("sda1"));
}

TEST_F(MachineTest, KindsOfMappingsFollowFromTheirUuids)
{
    const std::string volume = "LVM-" + std::string(64, 'a');
    directory.mapping("dm-0", "vg-lv", volume, {}).mapping("dm-1", "vg-lv-real", volume + "-real", {});
    directory.mapping("dm-2", "luks", "CRYPT-LUKS2-ab-luks", {}).mapping("dm-3", "plain", "", {});
    directory.mapping("dm-4", "vg-lv1", "part1-" + volume, {}).mapping("dm-5", "test", "PARTLY-x", {});
    const Machine machine = read();
    std::vector<std::pair<Kind, std::string>> kinds;
    for (const Device& device : machine.devices()) {
        kinds.emplace_back(device.kind, device.type);
    }
    EXPECT_THAT(kinds, ElementsAre(std::pair(Kind::volume, "lvm"), std::pair(Kind::hiddenVolume, "lvm"),
                                   std::pair(Kind::crypt, "crypt"), std::pair(Kind::otherMapping, "dm"),
                                   std::pair(Kind::otherMapping, "part"), std::pair(Kind::otherMapping, "part")));
}

TEST_F(MachineTest, KindsOfOtherDevicesFollowFromTheirNames)
{
    for (const char* const name : {"cciss/c0d0", "emcpowera", "emcpower", "loop0", "md0", "sdaa", "sr0", "srv"}) {
        directory.virtualDisk(name);
    }
    directory.attribute("md0", "md/level", "raid1\n");
    const Machine machine = read();
    std::vector<std::pair<Kind, std::string>> kinds;
    for (const Device& device : machine.devices()) {
        kinds.emplace_back(device.kind, device.type);
    }
    EXPECT_THAT(kinds, ElementsAre(std::pair(Kind::disk, "disk"), std::pair(Kind::disk, "disk"),
                                   std::pair(Kind::powerPath, "disk"), std::pair(Kind::loop, "loop"),
                                   std::pair(Kind::raid, "raid1"), std::pair(Kind::scsiDisk, "disk"),
                                   std::pair(Kind::rom, "rom"), std::pair(Kind::disk, "disk")));
}

TEST_F(MachineTest, ExclamationMarkOfSysfsIsASlash)
{
    directory.virtualDisk("cciss/c0d0").partition("cciss/c0d0", 1);
    const Machine machine = read();
    EXPECT_EQ(device(machine, "cciss/c0d0p1").node, "/dev/cciss/c0d0p1");
    EXPECT_EQ(kernelName(machine.byKernelName("cciss!c0d0p1")), "cciss/c0d0p1");
    EXPECT_EQ(kernelName(&machine.wholeOf(device(machine, "cciss/c0d0p1"))), "cciss/c0d0");
    EXPECT_EQ(kernelName(machine.byPath("/dev/cciss/c0d0")), "cciss/c0d0");
}

TEST_F(MachineTest, DeviceIsFoundByAnyOfItsNames)
{
    addStack();
    directory.link("/dev/disk/by-id/wwn-1", "../../sda").link("/dev/my", "/dev/disk/by-id/wwn-1");
    directory.link("/dev/dm-name-x", "mapper/mpatha").link("/dev/by", "disk/by-id");
    const Machine machine = read();
    EXPECT_EQ(kernelName(machine.byPath("/dev/sda")), "sda");
    EXPECT_EQ(kernelName(machine.byPath("dev/sda")), "sda");
    EXPECT_EQ(kernelName(machine.byPath("/dev/../dev//./sda")), "sda");
    EXPECT_EQ(kernelName(machine.byPath("/dev/my")), "sda");
    EXPECT_EQ(kernelName(machine.byPath("/dev/by/wwn-1")), "sda");
    EXPECT_EQ(kernelName(machine.byPath("/dev/mapper/mpatha")), "dm-0");
    EXPECT_EQ(kernelName(machine.byPath("/dev/dm-0")), "dm-0");
    EXPECT_EQ(kernelName(machine.byPath("/dev/dm-name-x")), "dm-0");
    EXPECT_EQ(kernelName(machine.byMapName("mpatha")), "dm-0");
    EXPECT_EQ(kernelName(machine.byNumber({8, 16})), "sdb");
    EXPECT_EQ(kernelName(machine.byPath("/dev/sdz")), "none");
    EXPECT_EQ(kernelName(machine.byPath("/sda")), "none");
    EXPECT_EQ(kernelName(machine.byPath("")), "none");
    EXPECT_EQ(kernelName(machine.byNumber({99, 0})), "none");
}

TEST_F(MachineTest, LinksUnderDevAreNamesOfTheirDevice)
{
    addStack();
    directory.link("/dev/disk/by-id/wwn-1", "../../sda").link("/dev/my", "/dev/disk/by-id/wwn-1");
    directory.link("/dev/mapper/mpatha", "../dm-0").link("/dev/vg/data", "../dm-2").link("/dev/log", "/run/log");
    directory.link("/dev/block/8:0", "../sda");
    const Machine machine = read();
    EXPECT_THAT(texts(device(machine, "sda").links), ElementsAre("/dev/disk/by-id/wwn-1", "/dev/my"));
    EXPECT_THAT(texts(device(machine, "dm-0").links), IsEmpty());
    EXPECT_THAT(texts(device(machine, "dm-2").links), ElementsAre("/dev/vg/data"));
    EXPECT_EQ(machine.marks(), noMark);
}

TEST_F(MachineTest, FileSystemComesFromTheFileOfTheNode)
{
    addStack();
    directory.record("dm-2", "ID_FS_TYPE=ext4\nID_FS_LABEL=my_data\nID_FS_LABEL_ENC=my\\x20data\nID_FS_UUID_ENC=1-2");
    const Machine machine = read();
    EXPECT_EQ(device(machine, "dm-2").fsType, "ext4");
    EXPECT_EQ(device(machine, "dm-2").fsLabel, "my data");
    EXPECT_EQ(device(machine, "dm-2").fsUuid, "1-2");
}

TEST_F(MachineTest, DatabaseOfUdevSaysMoreThanSysfs)
{
    directory.scsiDisk("sda", "0:0:0:0")
        .file("run/udev/data/b8:0",
              "S:disk/by-id/x\nI:1\n"
              "E:ID_MODEL_ENC=Whole\\x20long\\x20name\\x20\\x20\n"
              "E:ID_SERIAL=36001\nE:ID_SERIAL_SHORT=6001\n"
              "E:ID_WWN=0x1\nE:ID_WWN_WITH_EXTENSION=0x12\nE:ID_FS_TYPE=LVM2_member\n");
    const Machine machine = read();
    const Device& disk = device(machine, "sda");
    EXPECT_EQ(disk.model, "Whole long name");
    EXPECT_EQ(disk.serial, "6001");
    EXPECT_EQ(disk.wwid, "36001");
    EXPECT_EQ(disk.wwn, "0x12");
    EXPECT_EQ(disk.fsType, "LVM2_member");
}

TEST_F(MachineTest, MountsAndSwapsAreFoundByNumberSourceAndName)
{
    addStack();
    directory.virtualDisk("loop0");
    directory.file("proc/self/mountinfo",
                   "30 1 8:1 / / rw shared:1 - ext4 /dev/root rw\n"
                   "31 30 8:1 /sub /mnt\\040x rw - ext4 /dev/root rw\n"
                   "32 30 0:40 / /pool rw master:1 - btrfs /dev/mapper/vg-data rw\n"
                   "33 30 0:41 / /proc rw - proc proc rw\n");
    directory.file("proc/swaps", "Filename\tType\tSize\n/dev/loop0   partition\t1\n/swap file 1\n");
    const Machine machine = read();
    EXPECT_THAT(texts(device(machine, "sda1").mountPoints), ElementsAre("/", "/mnt x"));
    EXPECT_THAT(texts(device(machine, "dm-2").mountPoints), ElementsAre("/pool"));
    EXPECT_THAT(texts(device(machine, "loop0").mountPoints), ElementsAre("[SWAP]"));
    EXPECT_EQ(machine.marks(), noMark);
}

TEST_F(MachineTest, TransportIsThatOfTheHost)
{
    for (int host = 0; host < 5; ++host) {
        directory.scsiDisk("sd" + std::string(1, static_cast<char>('a' + host)), std::to_string(host) + ":0:0:0");
    }
    directory.file("sys/class/fc_host/host0/symbolic_name", "adapter\n");
    directory.file("sys/class/fc_host/host1/symbolic_name", "adapter over eth0\n");
    directory.file("sys/class/iscsi_host/host2/x", "").file("sys/class/scsi_host/host3/proc_name", "ahci\n");
    directory.file("sys/bus/scsi/devices/4:0:0:0/sas_device/x", "").virtualDisk("vda");
    const Machine machine = read();
    std::vector<std::string> found;
    for (const Device& device : machine.devices()) {
        found.emplace_back(device.transport);
    }
    EXPECT_THAT(found, ElementsAre("fc", "fcoe", "iscsi", "sata", "sas", "virtio"));
}

TEST_F(MachineTest, OnlyTheFactsAskedForAreRead)
{
    addStack();
    const Machine machine = read(basicFacts);
    const Device& disk = device(machine, "sda");
    EXPECT_EQ(disk.number, std::nullopt);
    EXPECT_EQ(disk.bytes, std::nullopt);
    EXPECT_EQ(disk.state, "");
    EXPECT_THAT(names(machine, device(machine, "dm-0").slaves), IsEmpty());
    EXPECT_EQ(disk.scsiAddress, "0:0:0:1");
    EXPECT_EQ(device(machine, "dm-0").node, "/dev/mapper/mpatha");
    EXPECT_EQ(kernelName(&machine.wholeOf(device(machine, "sda1"))), "sda");
}

TEST_F(MachineTest, DirectoryWithoutTheClassIsReadFromTheDisksDown)
{
    addStack();
    directory.remove("sys/class");
    const Machine machine = read();
    EXPECT_THAT(names(machine), ElementsAre("dm-0", "dm-1", "dm-2", "sda", "sda1", "sdb", "sdb1"));
    EXPECT_EQ(device(machine, "sda1").number, (DeviceNumber{8, 1}));
    EXPECT_EQ(kernelName(&machine.wholeOf(device(machine, "sda1"))), "sda");
    EXPECT_EQ(device(machine, "sda").scsiAddress, "0:0:0:1");
}

TEST_F(MachineTest, HoldersCountWhereTheSlavesWereNotRecorded)
{
    addStack();
    for (const char* const name : {"dm-0", "dm-1", "dm-2"}) {
        directory.remove(directory.placeOf(name) + "/slaves");
    }
    const Machine machine = read();
    EXPECT_THAT(names(machine, device(machine, "dm-0").slaves), ElementsAre("sda", "sdb"));
    EXPECT_EQ(device(machine, "dm-0").marks, noMark);
}

TEST_F(MachineTest, HiddenDeviceHasNoNumberAndNoMark)
{
    directory.nvme("nvme0n1").remove(directory.placeOf("nvme0n1") + "/dev").attribute("nvme0n1", "hidden", "1\n");
    const Machine machine = read();
    EXPECT_TRUE(device(machine, "nvme0n1").hidden);
    EXPECT_EQ(device(machine, "nvme0n1").number, std::nullopt);
    EXPECT_EQ(device(machine, "nvme0n1").marks, noMark);
}

TEST_F(MachineTest, AttributeWithoutALineEndIsWhole)
{
    directory.scsiDisk("sda", "0:0:0:0").attribute("sda", "size", "8").attribute("sda", "dev", "8:0");
    const Machine machine = read();
    EXPECT_EQ(device(machine, "sda").bytes, 4096U);
    EXPECT_EQ(device(machine, "sda").number, (DeviceNumber{8, 0}));
    EXPECT_EQ(device(machine, "sda").marks, noMark);
}

TEST_F(MachineTest, LongestAttributeOfAKernelIsReadWhole)
{
    const std::string longest(4095, 'x');
    directory.scsiDisk("sda", "0:0:0:0").attribute("sda", "device/model", longest + "\n");
    const Machine machine = read();
    EXPECT_EQ(device(machine, "sda").model, longest);
    EXPECT_EQ(device(machine, "sda").marks, noMark);
}

TEST_F(MachineTest, AttributeOfAMebibyteIsMissingAndMarked)
{
    directory.scsiDisk("sda", "0:0:0:0").attribute("sda", "device/model", std::string(1024UL * 1024, 'x'));
    const Machine machine = read();
    EXPECT_EQ(device(machine, "sda").model, "");
    EXPECT_EQ(device(machine, "sda").marks, tooLarge);
    EXPECT_EQ(device(machine, "sda").vendor, "Maker");
}

TEST_F(MachineTest, TextThatIsNotUtf8IsKeptAndMarked)
{
    directory.scsiDisk("sda", "0:0:0:0").attribute("sda", "device/model", "\xff\xfe\n");
    directory.scsiDisk("sdb", "0:0:0:1").attribute("sdb", "device/model", "\xc3\xa9\n");
    directory.virtualDisk("x\xff\ny");
    const Machine machine = read();
    EXPECT_EQ(device(machine, "sda").model, "\xff\xfe");
    EXPECT_EQ(device(machine, "sda").marks, notUtf8);
    EXPECT_EQ(device(machine, "sdb").marks, noMark);
    EXPECT_EQ(device(machine, "x\xff\ny").marks, notUtf8);
}

TEST_F(MachineTest, NumbersThatNoKernelGivesAreMissingAndMarked)
{
    for (const auto& [name, number] : {std::pair("sda", "4096:0"), std::pair("sdb", "8:1048576"), std::pair("sdc", "8"),
                                       std::pair("sdd", "-1:0"), std::pair("sde", "8:0x")}) {
        directory.scsiDisk(name, "0:0:0:0").attribute(name, "dev", number);
    }
    directory.scsiDisk("sdf", "0:0:0:0").attribute("sdf", "size", "36028797018963968\n");
    directory.scsiDisk("sdg", "0:0:0:0").attribute("sdg", "size", "36028797018963967\n");
    directory.scsiDisk("sdh", "0:0:0:0").attribute("sdh", "size", "");
    const Machine machine = read();
    for (const char* const name : {"sda", "sdb", "sdc", "sdd", "sde"}) {
        EXPECT_EQ(device(machine, name).number, std::nullopt) << name;
        EXPECT_EQ(device(machine, name).marks, outOfRange) << name;
    }
    EXPECT_EQ(device(machine, "sdf").bytes, std::nullopt);
    EXPECT_EQ(device(machine, "sdf").marks, outOfRange);
    EXPECT_EQ(device(machine, "sdg").bytes, 18446744073709551104U);
    EXPECT_EQ(device(machine, "sdh").marks, outOfRange);
}

TEST_F(MachineTest, DeviceThatVanishedWhileItWasReadIsMarked)
{
    addStack();
    directory.remove(directory.placeOf("sdb")).remove(directory.placeOf("dm-2"));
    const Machine machine = read();
    EXPECT_EQ(machine.devices().size(), 7U);
    EXPECT_EQ(device(machine, "sdb").marks, vanished);
    EXPECT_EQ(device(machine, "sdb1").marks, vanished);
    EXPECT_EQ(device(machine, "dm-2").marks, vanished);
    EXPECT_EQ(device(machine, "sda").marks, noMark);
    EXPECT_THAT(names(machine, device(machine, "dm-0").slaves), ElementsAre("sda", "sdb"));
}

TEST_F(MachineTest, SlaveThatTheMachineDoesNotHaveIsLeftOutAndMarked)
{
    addStack();
    directory.remove("sys/class/block/sdb").remove("sys/class/block/sdb1");
    const Machine machine = read();
    EXPECT_THAT(names(machine, device(machine, "dm-0").slaves), ElementsAre("sda"));
    EXPECT_EQ(device(machine, "dm-0").marks, unknownDevice);
}

TEST_F(MachineTest, DevicesInACircleAreMarked)
{
    addStack();
    directory.mapping("dm-3", "a", "", {}).mapping("dm-4", "b", "", {"dm-3"}).mapping("dm-5", "c", "", {"dm-4"});
    directory.stack("dm-4", "dm-3").mapping("dm-6", "d", "", {}).stack("dm-6", "dm-6");
    directory.virtualDisk("loop0").stack("loop0", "dm-3");
    const Machine machine = read();
    std::vector<std::string> marked;
    for (const Device& device : machine.devices()) {
        if (device.marks == circle) {
            marked.emplace_back(device.kernelName);
        }
    }
    EXPECT_THAT(marked, ElementsAre("dm-3", "dm-4", "dm-6"));
}

TEST_F(MachineTest, DiskOnTopOfItsOwnPartitionIsInACircle)
{
    directory.virtualDisk("md0").partition("md0", 1).mapping("dm-0", "a", "", {"md0p1"}).stack("dm-0", "md0");
    const Machine machine = read();
    EXPECT_EQ(device(machine, "md0").marks, circle);
    EXPECT_EQ(device(machine, "md0p1").marks, circle);
    EXPECT_EQ(device(machine, "dm-0").marks, circle);
}

TEST_F(MachineTest, PartitionsThatAreMappedOntoEachOtherHaveNoWholeDevice)
{
    directory.mapping("dm-0", "a", "part1-mpath-x", {}).mapping("dm-1", "b", "part2-mpath-x", {"dm-0"});
    directory.stack("dm-1", "dm-0");
    const Machine machine = read();
    EXPECT_EQ(device(machine, "dm-0").whole, noDevice);
    EXPECT_EQ(device(machine, "dm-1").marks, circle);
}

TEST_F(MachineTest, LinksThatFormACircleNameNothingAndAreMarked)
{
    directory.scsiDisk("sda", "0:0:0:0").link("/dev/a", "b").link("/dev/b", "a").link("/dev/c", "sda");
    directory.remove(directory.placeOf("sda") + "/ro").file("sys/x", "");
    std::filesystem::create_symlink("ro", directory.path() + "/" + directory.placeOf("sda") + "/ro");
    const Machine machine = read();
    EXPECT_EQ(machine.byPath("/dev/a"), nullptr);
    EXPECT_EQ(machine.marks(), circle);
    EXPECT_THAT(texts(device(machine, "sda").links), ElementsAre("/dev/c"));
    EXPECT_EQ(device(machine, "sda").marks, circle);
}

TEST_F(MachineTest, WhatIsNoFileIsMarked)
{
    directory.scsiDisk("sda", "0:0:0:0").remove(directory.placeOf("sda") + "/size");
    directory.file(directory.placeOf("sda") + "/size/x", "");
    directory.scsiDisk("sdb", "0:0:0:1").remove(directory.placeOf("sdb") + "/size");
    ASSERT_EQ(mkfifo((directory.path() + "/" + directory.placeOf("sdb") + "/size").c_str(), 0600), 0);
    const Machine machine = read();
    EXPECT_EQ(device(machine, "sda").marks, unreadable);
    EXPECT_EQ(device(machine, "sdb").marks, outOfRange);
}

TEST_F(MachineTest, MachineCanBeMoved)
{
    addStack();
    Machine one = read();
    const Device* const map = one.byKernelName("dm-0");
    const Machine other = std::move(one);
    EXPECT_EQ(other.byKernelName("dm-0"), map);
    EXPECT_EQ(other.indexOf(*map), 0U);
}

TEST_F(MachineTest, TheNumberAtAPathIsTheDevices)
{
    directory.scsiDisk("sda", "0:0:0:0").scsiDisk("sdb", "0:0:0:1").link("/dev/my", "sdb").file("dev/plain", "");
    const Machine machine = read();
    EXPECT_TRUE(machine.numberAt("/dev/sda") == (DeviceNumber{8, 0}));
    EXPECT_TRUE(machine.numberAt("/dev/my") == (DeviceNumber{8, 16}));
    EXPECT_FALSE(machine.numberAt("/dev/plain"));
    EXPECT_FALSE(machine.numberAt("/dev/sdc"));
}

TEST_F(MachineTest, DevicesAndFilesAreAtTheirPathsRecordedOrNot)
{
    directory.scsiDisk("sda", "0:0:0:0").file("dev/plain", "").link("/dev/nowhere", "gone").link("/dev/loop", "loop");
    const Machine machine = read();
    for (const char* const path : {"/dev/sda", "/dev/plain", "/dev", "/dev/../dev/sda"}) {
        EXPECT_TRUE(machine.isAnythingAt(path)) << path;
    }
    for (const char* const path : {"/dev/sdb", "/dev/nowhere", "/dev/loop", "/dev/plain/x", ""}) {
        EXPECT_FALSE(machine.isAnythingAt(path)) << path;
    }
}

TEST_F(MachineTest, ARecordedMachineDoesNotChange)
{
    directory.scsiDisk("sda", "0:0:0:0");
    const Machine machine = read();
    directory.remove("sys");
    EXPECT_TRUE(machine.isStillThere(device(machine, "sda")));
}

TEST(MachineRootTest, DirectoryWithoutDevicesIsAnErrorThatNamesIt)
{
    const tests::TemporaryFolder folder;
    for (const auto& [root, reason] :
         {std::pair(folder.path(), "cannot read sys/class/block (No such file or directory) below " + folder.path()),
          std::pair(folder.path() + "/none",
                    "cannot open the directory " + folder.path() + "/none: No such file or directory")}) {
        try {
            Machine::read(Root::recorded(root), basicFacts);
            FAIL();
        } catch (const ReadError& error) {
            EXPECT_EQ(error.what(), reason);
        }
    }
}
