// Whatever files and links a recorded root holds, the model is consistent and shows nothing from outside the root.
//
// Each line of the input makes one thing in the root: "+sys/block/sda/size 8" a file, ">dev/x ../sda" a link,
// "=sys/block" a directory. Directories above it are made on the way.
#include "fuzz/scripted_runner.h"
#include "machine/machine.h"
#include "machine/tree.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>
#include <vector>

using namespace kivclaim::machine;

namespace {

constexpr std::string_view outsideText = "from outside the root";
constexpr std::size_t mostLines = 64;

// In memory, where there is such a place; one root for each process.
class Place {
public:
    Place()
    {
        std::string pattern =
            std::filesystem::is_directory("/dev/shm") ? "/dev/shm/machine-fuzz-XXXXXX" : "/tmp/machine-fuzz-XXXXXX";
        fuzz::check(mkdtemp(pattern.data()) != nullptr, "a directory for the roots");
        top = pattern;
        write(top + "/outside", outsideText);
    }
    ~Place() { std::filesystem::remove_all(top); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    std::string root() const { return top + "/root"; }

    static void write(const std::string& path, std::string_view content)
    {
        const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (file >= 0) {
            fuzz::check(::write(file, content.data(), content.size()) >= 0, "a file can be written");
            ::close(file);
        }
    }

private:
    std::string top;
};

// Makes the directories of `path`, and nothing beyond a link; false where that is not possible.
bool makeParents(const std::string& root, const std::string& path, std::set<std::string>& made)
{
    for (std::size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const std::string directory = root + "/" + path.substr(0, slash);
        struct stat status {};
        if (!made.insert(directory).second) {
            continue;
        }
        ::mkdir(directory.c_str(), 0700);
        if (::lstat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
            made.erase(directory);
            return false;
        }
    }
    return true;
}

// ".." would write elsewhere; a NUL byte cannot be in a path.
bool isPlain(const std::string& path)
{
    return !path.empty() && path.size() < 200 && path.find("..") == std::string::npos &&
           path.find('\0') == std::string::npos;
}

void make(const std::string& root, std::string_view line, std::vector<std::string>& paths, std::set<std::string>& made)
{
    const std::size_t blank = line.find(' ');
    const std::string path(line.substr(1, blank == std::string_view::npos ? blank : blank - 1));
    const std::string_view content = blank == std::string_view::npos ? std::string_view() : line.substr(blank + 1);
    if (!isPlain(path) || !makeParents(root, path, made)) {
        return;
    }
    const std::string place = root + "/" + path;
    if (line.front() == '+') {
        Place::write(place, content);
    } else if (line.front() == '>') {
        (void)::symlink(std::string(content).c_str(), place.c_str());
    } else {
        ::mkdir(place.c_str(), 0700);
    }
    paths.push_back(path);
    paths.emplace_back(content);
}

void checkText(std::string_view text)
{
    fuzz::check(text.find(outsideText) == std::string_view::npos, "nothing outside of the root is read");
    fuzz::check(text.empty() || *text.end() == '\0', "a text ends with a NUL byte");
}

void checkDevice(const Machine& machine, const Device& device)
{
    for (const std::string_view text :
         {device.kernelName, device.node, device.type, device.mapName, device.mapUuid, device.scsiAddress, device.state,
          device.vendor, device.model, device.revision, device.serial, device.wwid, device.wwn, device.transport,
          device.fsType, device.fsLabel, device.fsUuid}) {
        checkText(text);
    }
    for (const List<std::string_view>& list : {device.links, device.mountPoints}) {
        for (const std::string_view text : list) {
            checkText(text);
        }
    }
    const DeviceIndex self = machine.indexOf(device);
    const auto isIn = [](const List<DeviceIndex>& list, DeviceIndex wanted) {
        return std::find(list.begin(), list.end(), wanted) != list.end();
    };
    for (const DeviceIndex slave : device.slaves) {
        fuzz::check(isIn(machine.devices().at(slave).holders, self), "a slave has its holder");
    }
    for (const DeviceIndex holder : device.holders) {
        fuzz::check(isIn(machine.devices().at(holder).slaves, self), "a holder has its slave");
    }
    for (const DeviceIndex partition : device.partitions) {
        fuzz::check(machine.devices().at(partition).whole == self, "a partition has its whole device");
        fuzz::check(machine.devices()[partition].partition != 0, "a partition has a number");
    }
    fuzz::check(machine.byKernelName(device.kernelName) != nullptr, "a device is found by its name");
    machine.mapOf(device);
    machine.pathsOf(device);
}

// Both ways of staying within the root lead to the same files.
void checkConfinement(const std::string& root, const std::vector<std::string>& paths)
{
    const Tree byKernel(Root::recorded(root), true);
    const Tree byHand(Root::recorded(root), false);
    for (const std::string& path : paths) {
        if (path.find('\0') != std::string::npos || path.size() > 200) {
            continue;
        }
        const Descriptor one = byKernel.open(Top::sys, "../" + path, O_PATH);
        const Descriptor other = byHand.open(Top::sys, "../" + path, O_PATH);
        fuzz::check(one.isOpen() == other.isOpen(), "both ways open a path, or none");
        struct stat first {};
        struct stat second {};
        if (one.isOpen() && ::fstat(one.get(), &first) == 0 && ::fstat(other.get(), &second) == 0) {
            fuzz::check(first.st_ino == second.st_ino, "both ways open the same file");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const Place place;
    const std::string root = place.root();
    ::mkdir(root.c_str(), 0700);
    std::vector<std::string> paths;
    std::set<std::string> made;  // directories
    std::vector<std::string> lines = fuzz::linesOf({reinterpret_cast<const char*>(data), size});
    lines.resize(std::min(lines.size(), mostLines));
    for (const std::string& line : lines) {
        if (!line.empty()) {
            make(root, line, paths, made);
        }
    }
    checkConfinement(root, paths);
    try {
        const Machine machine = Machine::read(Root::recorded(root), allFacts);
        for (const Device& device : machine.devices()) {
            checkDevice(machine, device);
        }
        for (const std::string& path : paths) {
            machine.byPath(path);
        }
    } catch (const ReadError&) {
        // A root without devices.
    }
    std::filesystem::remove_all(root);
    return 0;
}
