// The model says what lsblk says of the same directory, device by device. Reference: util-linux 2.38.1 of Debian 12.
#include "machine/machine.h"
#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

using namespace kivclaim::machine;

namespace {

using Rows = std::set<std::string>;

// What lsblk prints for a device that it reached through `parent`.
std::string row(const Device& device, const std::string& parent)
{
    std::ostringstream text;
    text << device.kernelName << '|' << device.number->major << ':' << device.number->minor << '|'
         << device.bytes.value_or(0) << '|' << device.type << '|' << (device.readOnly ? 1 : 0) << '|' << device.model
         << '|' << device.scsiAddress << '|' << device.state << '|' << parent << '|' << device.fsType << '|'
         << device.fsLabel << '|' << device.fsUuid << '|';
    for (const std::string_view place : device.mountPoints) {
        text << place << ';';
    }
    return text.str();
}

Rows rowsOf(const Machine& machine)
{
    Rows rows;
    for (const Device& device : machine.devices()) {
        if (device.kind == Kind::partition) {
            rows.insert(row(device, std::string(machine.wholeOf(device).kernelName)));
        } else if (device.slaves.empty()) {
            rows.insert(row(device, ""));
        }
        for (const DeviceIndex slave : device.slaves) {
            rows.insert(row(device, std::string(machine.devices()[slave].kernelName)));
        }
    }
    return rows;
}

std::string trimmed(const std::string& text)
{
    const std::size_t end = text.find_last_not_of(' ');
    return end == std::string::npos ? "" : text.substr(0, end + 1);
}

// NAME="value" NAME="value" ... in one line; values with blanks or bytes that lsblk escapes are not used here.
std::string rowOf(const std::string& line)
{
    std::string text;
    std::size_t end = 0;
    for (std::size_t begin = line.find('"'); begin != std::string::npos; begin = line.find('"', end + 1)) {
        end = line.find('"', begin + 1);
        text += trimmed(line.substr(begin + 1, end - begin - 1)) + "|";
    }
    text.back() = ';';
    const std::size_t last = text.rfind('|') + 1;
    return text.substr(last) == ";" ? text.substr(0, last) : text;
}

Rows rowsOfLsblk(const std::string& root)
{
    const tests::Ended ended =
        tests::Process("/usr/bin/lsblk",
                       {"--sysroot", root, "-a", "-b", "-P", "-o",
                        "KNAME,MAJ:MIN,SIZE,TYPE,RO,MODEL,HCTL,STATE,PKNAME,FSTYPE,LABEL,UUID,MOUNTPOINT"})
            .environment("LC_ALL", "C.UTF-8")
            .run();
    EXPECT_EQ(ended.status, 0) << ended.errors;
    Rows rows;
    std::istringstream lines(ended.output);
    for (std::string line; std::getline(lines, line);) {
        rows.insert(rowOf(line));
    }
    return rows;
}

void addDisks(tests::SysfsDirectory& directory)
{
    directory.scsiDisk("sda", "0:0:0:1").scsiDisk("sdb", "1:0:0:1").scsiDisk("sdc", "1:0:0:2");
    directory.partition("sda", 1).partition("sda", 5).attribute("sdc", "ro", "1\n").attribute("sdc", "size", "0\n");
    directory.attribute("sdb", "device/state", "offline\n").scsiDisk("sr0", "2:0:0:0");
    directory.attribute("sr0", "device/type", "5\n").attribute("sdc", "device/type", "0x0\n");
    directory.nvme("nvme0n1").partition("nvme0n1", 1).virtualDisk("cciss/c0d0").partition("cciss/c0d0", 2);
    directory.virtualDisk("loop3").partition("loop3", 1).virtualDisk("zram0").virtualDisk("emcpowera");
}

void addMappings(tests::SysfsDirectory& directory)
{
    directory.multipathMap("dm-0", "mpatha", "36001", {"sda", "sdb"}).multipathPartition("dm-1", "dm-0", 1);
    directory.volume("dm-2", "vg-data", {"dm-1", "nvme0n1p1"}).attribute("dm-2", "dm/suspended", "1\n");
    directory.mapping("dm-3", "luks", "CRYPT-LUKS2-aa-luks", {"dm-2"}).mapping("dm-4", "plain", "", {"sdc"});
    directory.virtualDisk("md0").stack("sda5", "md0").stack("sdc", "md0").attribute("md0", "md/level", "raid1\n");
}

}  // namespace

TEST(MachineLsblkTest, AgreesInEveryRow)
{
    const tests::TemporaryFolder folder;
    tests::SysfsDirectory directory(folder.path());
    addDisks(directory);
    addMappings(directory);
    directory.record("dm-3", "ID_FS_TYPE=ext4\nID_FS_LABEL_ENC=my\\x20data\nID_FS_UUID_ENC=1-2\n");
    directory.record("sdc", "ID_MODEL=Other_name\n")
        .record("sdb", "ID_MODEL_ENC=Not\\x20used\n")
        .mount("dm-3", "/data")
        .mount("sda1", "/");
    const Rows ours = rowsOf(Machine::read(Root::recorded(folder.path()), allFacts));
    EXPECT_GT(ours.size(), 20U);
    EXPECT_EQ(ours, rowsOfLsblk(folder.path()));
}
