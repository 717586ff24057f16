// Writes a machine as a directory, laid out as for `lsblk --sysroot`: tests and benchmarks read it.
#ifndef KIVCLAIM_TESTS_SYSFS_DIRECTORY_H
#define KIVCLAIM_TESTS_SYSFS_DIRECTORY_H

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace tests {

// Add a device before those on top of it: the devices that a partition or a mapping names must exist. Names are the
// kernel's, such as "cciss/c0d0". Throws std::system_error when something cannot be written.
class SysfsDirectory {
public:
    // Writes below `root`, which exists.
    explicit SysfsDirectory(std::string root);

    const std::string& path() const { return root; }

    // A SCSI disk at H:C:T:L with the directories of its host; `wwid` as in sysfs ("naa.6001405…").
    SysfsDirectory& scsiDisk(const std::string& name, const std::string& address, const std::string& wwid = "");
    // A namespace of an NVMe controller: "nvme0n1".
    SysfsDirectory& nvme(const std::string& name);
    // A device without hardware: loop0, md0, emcpowera, zram0.
    SysfsDirectory& virtualDisk(const std::string& name);
    SysfsDirectory& partition(const std::string& disk, unsigned int number);

    // A device of device-mapper on top of others.
    SysfsDirectory& mapping(const std::string& name, const std::string& mapName, const std::string& uuid,
                            const std::vector<std::string>& slaves);
    SysfsDirectory& multipathMap(const std::string& name, const std::string& mapName, const std::string& wwid,
                                 const std::vector<std::string>& paths);
    // Partition `number` of a multipath map, as kpartx makes it.
    SysfsDirectory& multipathPartition(const std::string& name, const std::string& map, unsigned int number);
    // Volume "group-volume" of LVM.
    SysfsDirectory& volume(const std::string& name, const std::string& mapName, const std::vector<std::string>& slaves);

    // Makes one device a slave of another one, in both directories.
    SysfsDirectory& stack(const std::string& slave, const std::string& holder);

    // Replaces the content of a file of the device, such as "size" or "device/state"; it is written as it is.
    SysfsDirectory& attribute(const std::string& name, const std::string& file, const std::string& content);
    // "/dev/disk/by-id/wwn-0x1", "../../sda"
    SysfsDirectory& link(const std::string& path, const std::string& target);
    // udev's properties of the device: lines such as "ID_FS_TYPE=ext4", in the file of its node.
    SysfsDirectory& record(const std::string& name, const std::string& lines);
    SysfsDirectory& mount(const std::string& name, const std::string& place);

    // Any file, below the root.
    SysfsDirectory& file(const std::string& place, const std::string& content);
    SysfsDirectory& remove(const std::string& place);

    // The device's directory, below the root: "sys/devices/…/block/sda".
    const std::string& placeOf(const std::string& name) const { return devices.at(name).place; }

private:
    struct Device {
        std::string place;
        std::string number;
        std::string mapName;
        std::string mapUuid;
    };

    Device& add(const std::string& name, const std::string& place, const std::string& number);
    void addDisk(const std::string& name, const std::string& place, const std::string& number);
    void makeDirectory(const std::string& place);
    void makeLink(const std::string& place, const std::string& target);
    std::string numberIn(unsigned int major);
    std::string newNumberAfter(const std::string& disk, unsigned int partition);

    std::string root;
    std::unordered_map<std::string, Device> devices;
    std::map<unsigned int, unsigned int> nextMinor;
    std::unordered_map<std::string, std::string> filesByContent;
    std::string mounts;
};

}  // namespace tests

#endif
