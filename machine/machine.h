// A machine's block devices and how they are stacked, as its kernel describes them: a live machine, or the copy of
// another one.
#ifndef KIVCLAIM_MACHINE_MACHINE_H
#define KIVCLAIM_MACHINE_MACHINE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kivclaim::machine {

// The root directory cannot be read, or holds no block devices of a kernel. The text is one line that names the root.
class ReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Where a machine is read from. A value; any thread.
class Root {
public:
    // The machine that this process runs on.
    static Root live() { return {"/", true}; }
    // A directory that is laid out as for `lsblk --sysroot`: sys/, and dev/, proc/, run/ where there are any. Absolute
    // links in it begin at the directory, and nothing outside of it is opened. No file in it is trusted.
    // Messages call it `name`, which is the directory when it is empty.
    static Root recorded(std::string directory, std::string name = {})
    {
        Root root(std::move(directory), false);
        root.shownName = std::move(name);
        return root;
    }

    bool isLive() const { return ofThisProcess; }
    const std::string& path() const { return directory; }
    const std::string& name() const { return shownName.empty() ? directory : shownName; }

private:
    Root(std::string directory, bool live) : directory(std::move(directory)), ofThisProcess(live) {}

    std::string directory;
    std::string shownName;
    bool ofThisProcess;
};

// What to read beside the basic facts, which are: names, kinds, nodes, map names and uuids, SCSI addresses, partition
// numbers and whole disks. Each fact costs about one file for each device that can have it.
enum Fact : std::uint32_t {
    basicFacts = 0,
    numbers = 1U << 0,       // number
    sizes = 1U << 1,         // bytes
    protection = 1U << 2,    // readOnly
    removability = 1U << 3,  // removable
    types = 1U << 4,         // type as the SCSI device and the RAID tell it; else it follows from the kind
    stacking = 1U << 5,      // slaves, holders; whole disks of the partitions that kpartx makes
    states = 1U << 6,        // state
    models = 1U << 7,        // vendor, model, revision
    identities = 1U << 8,    // serial, wwid, wwn
    transports = 1U << 9,    // transport
    contents = 1U << 10,     // fsType, fsLabel, fsUuid
    links = 1U << 11,        // links
    mounts = 1U << 12,       // mountPoints
    allFacts = (1U << 13) - 1
};
using Facts = std::uint32_t;  // Fact | Fact ...

// Problems met when reading a device, or the machine as a whole. What a mark concerns is missing in the model; the rest
// is complete.
enum Mark : std::uint32_t {
    noMark = 0,
    vanished = 1U << 0,      // gone, whole or in part, while it was read
    unreadable = 1U << 1,    // a file of it cannot be read, or is no file
    circle = 1U << 2,        // it is in a circle of slaves, or between two; or a link leads back to itself
    outOfRange = 1U << 3,    // an invalid number, or one outside the kernel's range
    notUtf8 = 1U << 4,       // a text that is not UTF-8; it is given as it was read
    tooLarge = 1U << 5,      // a file longer than the kernel writes
    unknownDevice = 1U << 6  // a slave or holder names a device that the machine does not have
};
using Marks = std::uint32_t;  // Mark | Mark ...

enum class Kind : std::uint8_t {
    disk,                // a whole device of a driver not named below
    scsiDisk,            // of the sd driver
    nvme,                // a namespace
    powerPath,           // a pseudo device emcpower*
    rom,                 // of the sr driver
    loop,                //
    raid,                // of the md driver
    partition,           // made by the kernel, of any disk
    multipathMap,        //
    multipathPartition,  // made by kpartx, of a multipath map
    volume,              // a logical volume of LVM
    hiddenVolume,        // a layer that LVM keeps below its volumes
    crypt,               //
    otherMapping         // any other device of device-mapper, partitions in other maps included
};

bool isMapping(Kind kind);  // of device-mapper

// Where a device is in Machine::devices().
using DeviceIndex = std::uint32_t;
constexpr DeviceIndex noDevice = UINT32_MAX;

struct DeviceNumber {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;

    friend bool operator==(DeviceNumber one, DeviceNumber other)
    {
        return one.major == other.major && one.minor == other.minor;
    }
};

// A fixed list of a machine. Threads: any. Ownership: borrows from the machine. Failure: none.
template <class Item>
class List {
public:
    List() = default;
    List(const Item* items, std::size_t count) : items(items), count(static_cast<std::uint32_t>(count)) {}

    const Item* begin() const { return items; }
    const Item* end() const { return items + count; }
    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    const Item& operator[](std::size_t position) const { return items[position]; }

private:
    const Item* items = nullptr;
    std::uint32_t count = 0;
};

// Texts are bytes as they were read, without the blanks around them; an empty one is not known. They are owned by the
// machine, and those that are known end with a NUL byte after the last one.
struct Device {
    Kind kind = Kind::disk;
    bool readOnly = false;
    bool removable = false;  // of a partition: its disk
    bool hidden =
        false;  // without a node, such as a path of a native NVMe multipath device; of others read with numbers

    std::string_view kernelName;  // sda, dm-3, cciss/c0d0
    std::string_view node;        // /dev/sda, /dev/cciss/c0d0; of a mapping with a name /dev/mapper/NAME
    std::optional<DeviceNumber> number;
    std::string_view type;  // as lsblk names it: disk, part, lvm, mpath, crypt, raid1, loop, rom, dm ...
    std::optional<std::uint64_t> bytes;

    unsigned int partition = 0;    // 0 for a whole device
    DeviceIndex whole = noDevice;  // of a partition: the disk, or the multipath map or other map below kpartx's
    List<DeviceIndex> partitions;  // by number; those in a mapping need the stacking
    List<DeviceIndex> slaves;      // what it is stacked on; not the disk of a partition
    List<DeviceIndex> holders;     // those whose slave it is; among them partitions that kpartx made, not the kernel's

    std::string_view mapName;  // of a mapping
    std::string_view mapUuid;

    std::string_view scsiAddress;  // H:C:T:L
    std::string_view state;        // running, offline, live ...; of a mapping running or suspended
    std::string_view vendor;
    std::string_view model;
    std::string_view revision;
    std::string_view serial;
    std::string_view wwid;  // as multipath writes it: the same for all paths and for their map
    std::string_view wwn;   // as lsblk writes it
    std::string_view transport;

    std::string_view fsType;
    std::string_view fsLabel;
    std::string_view fsUuid;

    List<std::string_view> links;        // other names under /dev, sorted
    List<std::string_view> mountPoints;  // in the order in which they were mounted; a swap is "[SWAP]"

    Marks marks = noMark;
};

// The model.
//
// What for: one reading of a machine, then any number of questions about it. It keeps the state of one moment and never
// reads again, except that byPath follows links.
// Threads: read() on any; any number of threads may ask a machine at the same time.
// Ownership: devices, texts and lists belong to the machine and end with it. Moving a machine keeps them where they
// are. Failure: read() throws ReadError when there is nothing to read, and std::bad_alloc. Everything else that is
// wrong with what it reads becomes a mark. Questions never fail: an unknown device is null.
class Machine {
public:
    static Machine read(const Root& root, Facts facts);

    ~Machine();
    Machine(Machine&& other) noexcept;
    Machine& operator=(Machine&& other) noexcept;
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    // By kernel name in natural order: sda9 before sda10. Includes hidden devices.
    const std::vector<Device>& devices() const;
    DeviceIndex indexOf(const Device& device) const;  // of one of devices()

    // Problems of the machine as a whole.
    Marks marks() const;

    // "sda", "cciss/c0d0" or "cciss!c0d0".
    const Device* byKernelName(std::string_view name) const;
    // "mpatha" for /dev/mapper/mpatha.
    const Device* byMapName(std::string_view name) const;
    // Needs the numbers to have been read.
    const Device* byNumber(DeviceNumber number) const;
    // Any name of a device under /dev, as a program on that machine would use it. On a live machine the number of the
    // node decides, so the numbers must have been read. On a recorded one, links are followed within the root, and a
    // node that was not recorded counts as existing, unless the root lists all nodes. A relative path begins at the
    // working directory of a live machine, and at the root of a recorded one. Null when no device is there.
    const Device* byPath(const std::string& path) const;
    // The number of the block device that a path, as for byPath, leads to. Known too for a node without a device; needs
    // the numbers to have been read.
    std::optional<DeviceNumber> numberAt(const std::string& path) const;
    // Whether a path, as for byPath, leads to a device or to any file.
    bool isAnythingAt(const std::string& path) const;
    // Whether a program on a recorded machine could open what a path leads to: anything, unless the recording says that
    // the recording user could not read the node.
    bool canBeOpened(const std::string& path) const;
    // Whether a device of this name and number is still there: the only question that reads the machine again. A
    // recorded machine does not change.
    bool isStillThere(const Device& device) const;

    // Of a partition: its whole device; of another one: itself. A partition of unknown origin is its own.
    const Device& wholeOf(const Device& device) const;
    // The multipath map that a disk, or the disk of a partition, is a path of. Needs the stacking.
    const Device* mapOf(const Device& device) const;
    // The paths of a multipath map; each has its state, when states were read. Needs the stacking.
    std::vector<const Device*> pathsOf(const Device& map) const;

    struct State;  // private to machine/

private:
    explicit Machine(std::unique_ptr<State> state);

    std::unique_ptr<State> state;
};

}  // namespace kivclaim::machine

#endif
