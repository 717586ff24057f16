// Writes a machine with many block devices as a directory: machine_generator DIRECTORY DEVICES
// The same number gives the same machine. Exit status: 0 written; 2 not, with the reason on standard error.
//
// Of each 16 devices eight are the paths of two multipath maps, four are partitions on the paths of the first map, then
// come the maps, the partition of the first as kpartx makes it, and a volume on the second. The last few are plain
// disks. Disks have a link in /dev/disk/by-id, volumes a file system. What lvdisplay prints there and the kernel's
// release are recorded too.
#include "tests/sysfs_directory.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

namespace {

constexpr unsigned long devicesOfAGroup = 16;
constexpr unsigned int pathsOfAMap = 4;
constexpr unsigned long mostUnits = 16384;  // of a target

// sda ... sdz, sdaa ...
std::string diskName(unsigned long index)
{
    std::string letters;
    for (unsigned long left = index + 1; left > 0; left = (left - 1) / 26) {
        letters.insert(letters.begin(), static_cast<char>('a' + (left - 1) % 26));
    }
    return "sd" + letters;
}

std::string hexadecimal(unsigned long number)
{
    char text[17];
    std::snprintf(text, sizeof text, "%016lx", number);
    return text;
}

class Generator {
public:
    explicit Generator(const std::string& directory) : machine(directory) {}

    void add(unsigned long devices)
    {
        for (; devices >= devicesOfAGroup; devices -= devicesOfAGroup) {
            addGroup();
        }
        for (; devices > 0; --devices) {
            addDisk(0, units++);
        }
        machine.file("proc/sys/kernel/osrelease", "6.1.0-41-amd64\n");
        machine.file("kivclaim/commands/sbin/lvdisplay/output", volumes);
    }

private:
    std::string wwidOf(unsigned long unit) const { return "6001405000000000" + hexadecimal(unit); }
    std::string mappingName() { return "dm-" + std::to_string(mappings++); }

    std::string addDisk(unsigned int host, unsigned long unit)
    {
        std::string name = diskName(disks++);
        machine.scsiDisk(
            name,
            std::to_string(host) + ":0:" + std::to_string(unit / mostUnits) + ":" + std::to_string(unit % mostUnits),
            "naa." + wwidOf(unit));
        machine.link("/dev/disk/by-id/scsi-" + name, "../../" + name);
        return name;
    }

    std::string addMap(bool partitioned)
    {
        const unsigned long unit = units++;
        std::vector<std::string> paths;
        for (unsigned int host = 0; host < pathsOfAMap; ++host) {
            paths.push_back(addDisk(host, unit));
            if (partitioned) {
                machine.partition(paths.back(), 1);
            }
        }
        std::string map = mappingName();
        machine.multipathMap(map, "mpath" + std::to_string(unit), "3" + wwidOf(unit), paths);
        return map;
    }

    void addGroup()
    {
        machine.multipathPartition(mappingName(), addMap(true), 1);
        const std::string map = addMap(false);
        const std::string volume = mappingName();
        const std::string name = "lv" + std::to_string(mappings);
        machine.volume(volume, "vg-" + name, {map});
        volumes += "  --- Logical volume ---\n  LV Path                /dev/vg/" + name +
                   "\n  LV Name                " + name + "\n  VG Name                vg\n\n";
        machine.record(volume, "ID_FS_TYPE=xfs\nID_FS_UUID_ENC=" + hexadecimal(mappings) + "\n");
    }

    tests::SysfsDirectory machine;
    std::string volumes;
    unsigned long disks = 0;
    unsigned long mappings = 0;
    unsigned long units = 0;
};

}  // namespace

int main(int argumentCount, char** arguments)
{
    char* end = nullptr;
    const unsigned long devices = argumentCount == 3 ? std::strtoul(arguments[2], &end, 10) : 0;
    if (devices == 0 || *end != '\0') {
        std::fputs("usage: machine_generator DIRECTORY DEVICES\n", stderr);
        return 2;
    }
    try {
        std::filesystem::create_directories(arguments[1]);
        Generator(arguments[1]).add(devices);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "machine_generator: %s\n", error.what());
        return 2;
    }
}
