// The other names of devices under /dev, as its links tell.
#include "machine/state.h"
#include "machine/text.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <climits>
#include <string>

namespace kivclaim::machine {

namespace {

constexpr int mostHops = 40;
constexpr std::size_t deepest = 16;

// "/dev/disk/by-id" and "../../sda" give "/dev/sda".
std::string joined(std::string_view directory, std::string_view target)
{
    std::string path(beginsWith(target, "/") ? "" : directory);
    while (!target.empty()) {
        const std::string_view name = takeUntil(target, '/');
        if (name == "..") {
            path.erase(path.rfind('/') == std::string::npos ? 0 : path.rfind('/'));
        } else if (!name.empty() && name != ".") {
            path.append("/").append(name);
        }
    }
    return path;
}

// Walks the directories below /dev.
class LinkReader {
public:
    LinkReader(Machine::State& machine, FileReader& files) : machine(machine), files(files) {}

    void read()
    {
        struct stat top {};
        const Descriptor dev = machine.tree.open(Top::dev, "", O_PATH);
        if (!dev.isOpen() || ::fstat(dev.get(), &top) != 0) {
            return;
        }
        fileSystem = top.st_dev;
        directories = {""};
        while (!directories.empty()) {
            const std::string name = std::move(directories.back());
            directories.pop_back();
            readDirectory(name);
        }
        give();
    }

private:
    void readDirectory(const std::string& name)
    {
        const Descriptor directory = machine.tree.open(Top::dev, name, O_RDONLY | O_DIRECTORY);
        struct stat status {};
        // What is mounted below /dev, such as shared memory, names no devices.
        if (!directory.isOpen() || ::fstat(directory.get(), &status) != 0 || status.st_dev != fileSystem) {
            return;
        }
        std::vector<std::string> found;
        files.entries(directory.get(), machine.marks, [&](std::string_view entry, unsigned char type) {
            const std::string path = name.empty() ? std::string(entry) : name + "/" + std::string(entry);
            if (type == DT_LNK) {
                add(directory.get(), "/dev/" + path);
            } else if (type == DT_DIR && isWorthReading(path)) {
                directories.push_back(path);
            }
        });
    }

    // In block/ and char/ there is a link for each number; they are no names.
    static bool isWorthReading(const std::string& path)
    {
        return path != "block" && path != "char" &&
               static_cast<std::size_t>(std::count(path.begin(), path.end(), '/')) < deepest;
    }

    void add(int directory, const std::string& path)
    {
        char target[PATH_MAX];
        const std::size_t slash = path.rfind('/');
        const ssize_t length = ::readlinkat(directory, path.c_str() + slash + 1, target, sizeof target);
        if (length > 0) {
            targets[path] = joined(path.substr(0, slash), {target, static_cast<std::size_t>(length)});
        }
    }

    DeviceIndex deviceOf(const std::string& link)
    {
        std::string path = link;
        for (int hops = 0; hops < mostHops; ++hops) {
            const auto next = targets.find(path);
            if (next == targets.end()) {
                return machine.byNode(path);
            }
            path = next->second;
        }
        machine.marks |= circle;
        return noDevice;
    }

    void give()
    {
        std::vector<std::pair<DeviceIndex, std::string_view>> found;
        for (const auto& [link, target] : targets) {
            const DeviceIndex device = deviceOf(link);
            if (device != noDevice && link != machine.devices[device].node) {
                machine.devices[device].marks |= isUtf8(link) ? noMark : notUtf8;
                found.emplace_back(device, machine.texts.keep(link));
            }
        }
        std::sort(found.begin(), found.end());
        deal(machine.texts, machine.devices, found, &Device::links);
    }

    Machine::State& machine;
    FileReader& files;
    dev_t fileSystem = 0;
    std::vector<std::string> directories;  // still to be read
    std::unordered_map<std::string, std::string> targets;
};

}  // namespace

void readLinks(Machine::State& machine, FileReader& files)
{
    LinkReader(machine, files).read();
}

}  // namespace kivclaim::machine
