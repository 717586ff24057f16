#include "tests/sysfs_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace tests {

namespace {

constexpr unsigned int sdMajor = 8;
constexpr unsigned int nvmeMajor = 259;
constexpr unsigned int mapperMajor = 253;
constexpr unsigned int otherMajor = 240;
constexpr unsigned int minorsOfADisk = 16;
constexpr std::size_t longestShared = 16;

void check(bool succeeded, const std::string& place)
{
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), place);
    }
}

// sysfs writes the slash in a kernel name as an exclamation mark.
std::string inSysfs(std::string name)
{
    std::replace(name.begin(), name.end(), '/', '!');
    return name;
}

std::string lastName(const std::string& place)
{
    return place.substr(place.rfind('/') + 1);
}

// From a link at `place` to `target`, both below sys/, as the kernel writes it.
std::string relative(const std::string& place, const std::string& target)
{
    constexpr std::size_t sys = 4;
    std::string up;
    for (std::size_t i = sys; i < place.size(); ++i) {
        up += place[i] == '/' ? "../" : "";
    }
    return up + target.substr(sys);
}

}  // namespace

SysfsDirectory::SysfsDirectory(std::string root) : root(std::move(root))
{
    makeDirectory("sys/class/block");
    makeDirectory("sys/block");
    makeDirectory("sys/dev/block");
    makeDirectory("dev/mapper");
    makeDirectory("proc/self");
}

void SysfsDirectory::makeDirectory(const std::string& place)
{
    if (::mkdir((root + "/" + place).c_str(), 0755) != 0 && errno != EEXIST) {
        std::filesystem::create_directories(root + "/" + place);
    }
}

void SysfsDirectory::makeLink(const std::string& place, const std::string& target)
{
    check(::symlink(target.c_str(), (root + "/" + place).c_str()) == 0 || errno == EEXIST, place);
}

SysfsDirectory& SysfsDirectory::file(const std::string& place, const std::string& content)
{
    const std::string path = root + "/" + place;
    ::unlink(path.c_str());
    // A large machine has the same few texts in most of its files: they share one.
    const bool isShared = !content.empty() && content.size() <= longestShared;
    std::string& shared = filesByContent[isShared ? content : std::string()];
    if (isShared && !shared.empty() && ::link(shared.c_str(), path.c_str()) == 0) {
        return *this;
    }
    int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (file < 0 && errno == ENOENT) {
        makeDirectory(place.substr(0, place.rfind('/')));
        file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    }
    check(file >= 0, path);
    check(::write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()), path);
    ::close(file);
    shared = path;
    return *this;
}

SysfsDirectory& SysfsDirectory::remove(const std::string& place)
{
    std::filesystem::remove_all(root + "/" + place);
    return *this;
}

std::string SysfsDirectory::numberIn(unsigned int major)
{
    const unsigned int step = major == sdMajor ? minorsOfADisk : 1;
    const unsigned int minor = nextMinor[major];
    nextMinor[major] += step;
    return std::to_string(major) + ":" + std::to_string(minor);
}

SysfsDirectory::Device& SysfsDirectory::add(const std::string& name, const std::string& place,
                                            const std::string& number)
{
    Device& device = devices[name];
    device.place = place;
    device.number = number;
    makeDirectory(place);
    makeDirectory(place + "/holders");
    makeLink("sys/class/block/" + inSysfs(name), relative("sys/class/block/", place));
    makeLink("sys/dev/block/" + number, relative("sys/dev/block/", place));
    attribute(name, "dev", number + "\n");
    attribute(name, "size", "2097152\n");
    attribute(name, "ro", "0\n");
    return device;
}

void SysfsDirectory::addDisk(const std::string& name, const std::string& place, const std::string& number)
{
    add(name, place, number);
    makeDirectory(place + "/slaves");
    makeLink("sys/block/" + inSysfs(name), relative("sys/block/", place));
    attribute(name, "removable", "0\n");
}

SysfsDirectory& SysfsDirectory::scsiDisk(const std::string& name, const std::string& address, const std::string& wwid)
{
    const std::string host = "host" + address.substr(0, address.find(':'));
    const std::string target = "target" + address.substr(0, address.rfind(':'));
    const std::string hardware = "sys/devices/pci0000:00/" + host + "/" + target + "/" + address;
    makeDirectory(hardware + "/block");
    addDisk(name, hardware + "/block/" + inSysfs(name), numberIn(sdMajor));
    makeLink(placeOf(name) + "/device", "../../../" + address);
    for (const auto& [attributeName, content] : {std::pair("type", "0\n"),
                                                 {"vendor", "Maker   \n"},
                                                 {"model", "Virtual disk    \n"},
                                                 {"rev", "2.0 \n"},
                                                 {"state", "running\n"}}) {
        file(hardware + "/" + attributeName, content);
    }
    if (!wwid.empty()) {
        file(hardware + "/wwid", wwid + "\n");
    }
    return *this;
}

SysfsDirectory& SysfsDirectory::nvme(const std::string& name)
{
    const std::string controller = name.substr(0, name.rfind('n'));
    const std::string hardware = "sys/devices/pci0000:00/nvme/" + controller;
    makeDirectory(hardware);
    addDisk(name, hardware + "/" + name, numberIn(nvmeMajor));
    makeLink(placeOf(name) + "/device", "../../" + controller);
    for (const auto& [attributeName, content] : {std::pair("model", "Fast disk                               \n"),
                                                 {"serial", "S1234               \n"},
                                                 {"firmware_rev", "1.0     \n"},
                                                 {"state", "live\n"}}) {
        file(hardware + "/" + attributeName, content);
    }
    return attribute(name, "wwid", "eui.00253000" + name + "\n");
}

SysfsDirectory& SysfsDirectory::virtualDisk(const std::string& name)
{
    makeDirectory("sys/devices/virtual/block");
    addDisk(name, "sys/devices/virtual/block/" + inSysfs(name), numberIn(otherMajor));
    return *this;
}

SysfsDirectory& SysfsDirectory::partition(const std::string& disk, unsigned int number)
{
    const bool endsInDigit = disk.back() >= '0' && disk.back() <= '9';
    const std::string name = disk + (endsInDigit ? "p" : "") + std::to_string(number);
    const std::string place = placeOf(disk);
    add(name, place + "/" + inSysfs(name), newNumberAfter(disk, number));
    attribute(name, "partition", std::to_string(number) + "\n");
    attribute(name, "start", "2048\n");
    return attribute(name, "size", "1046528\n");
}

std::string SysfsDirectory::newNumberAfter(const std::string& disk, unsigned int partition)
{
    const std::string& number = devices.at(disk).number;
    const std::size_t colon = number.find(':');
    if (number.substr(0, colon) != std::to_string(sdMajor)) {
        return numberIn(nvmeMajor);
    }
    return number.substr(0, colon + 1) + std::to_string(std::stoul(number.substr(colon + 1)) + partition);
}

SysfsDirectory& SysfsDirectory::mapping(const std::string& name, const std::string& mapName, const std::string& uuid,
                                        const std::vector<std::string>& slaves)
{
    makeDirectory("sys/devices/virtual/block");
    addDisk(name, "sys/devices/virtual/block/" + name, numberIn(mapperMajor));
    makeDirectory(placeOf(name) + "/dm");
    devices[name].mapName = mapName;
    devices[name].mapUuid = uuid;
    attribute(name, "dm/name", mapName + "\n");
    attribute(name, "dm/uuid", uuid + "\n");
    attribute(name, "dm/suspended", "0\n");
    for (const std::string& slave : slaves) {
        stack(slave, name);
    }
    return *this;
}

SysfsDirectory& SysfsDirectory::multipathMap(const std::string& name, const std::string& mapName,
                                             const std::string& wwid, const std::vector<std::string>& paths)
{
    return mapping(name, mapName, "mpath-" + wwid, paths);
}

SysfsDirectory& SysfsDirectory::multipathPartition(const std::string& name, const std::string& map, unsigned int number)
{
    const Device& whole = devices.at(map);
    const std::string part = "part" + std::to_string(number);
    return mapping(name, whole.mapName + "-" + part, part + "-" + whole.mapUuid, {map});
}

SysfsDirectory& SysfsDirectory::volume(const std::string& name, const std::string& mapName,
                                       const std::vector<std::string>& slaves)
{
    std::string uuid = "LVM-" + std::string(64 - std::min<std::size_t>(mapName.size(), 64), 'x') + mapName;
    std::replace(uuid.begin() + 4, uuid.end(), '-', 'y');
    return mapping(name, mapName, uuid, slaves);
}

SysfsDirectory& SysfsDirectory::stack(const std::string& slave, const std::string& holder)
{
    const std::string below = placeOf(slave);
    const std::string above = placeOf(holder);
    const std::string down = above + "/slaves/" + lastName(below);
    const std::string up = below + "/holders/" + lastName(above);
    makeLink(down, relative(down, below));
    makeLink(up, relative(up, above));
    return *this;
}

SysfsDirectory& SysfsDirectory::attribute(const std::string& name, const std::string& attributeFile,
                                          const std::string& content)
{
    return file(placeOf(name) + "/" + attributeFile, content);
}

SysfsDirectory& SysfsDirectory::link(const std::string& path, const std::string& target)
{
    const std::string place = path.substr(1);
    makeDirectory(place.substr(0, place.rfind('/')));
    makeLink(place, target);
    return *this;
}

SysfsDirectory& SysfsDirectory::record(const std::string& name, const std::string& lines)
{
    const std::string& mapName = devices.at(name).mapName;
    return file("dev/" + (mapName.empty() ? name : "mapper/" + mapName), lines);
}

SysfsDirectory& SysfsDirectory::mount(const std::string& name, const std::string& place)
{
    mounts += "30 1 " + devices.at(name).number + " / " + place + " rw,relatime shared:1 - ext4 /dev/" + name + " rw\n";
    return file("proc/self/mountinfo", mounts);
}

}  // namespace tests
