#include "machine/copy.h"

#include "machine/file_reader.h"
#include "machine/record.h"
#include "machine/state.h"
#include "machine/text.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace kivclaim::machine {

namespace {

// What lsblk reads of a device beside what the model does.
constexpr const char* forLsblk[] = {"alignment_offset",
                                    "device/rev",
                                    "device/serial",
                                    "device/state",
                                    "device/type",
                                    "device/vendor",
                                    "device/wwid",
                                    "discard_alignment",
                                    "diskseq",
                                    "dm/suspended",
                                    "hidden",
                                    "md/level",
                                    "partition",
                                    "queue/add_random",
                                    "queue/chunk_sectors",
                                    "queue/dax",
                                    "queue/discard_granularity",
                                    "queue/discard_max_bytes",
                                    "queue/discard_zeroes_data",
                                    "queue/logical_block_size",
                                    "queue/max_active_zones",
                                    "queue/max_open_zones",
                                    "queue/minimum_io_size",
                                    "queue/nr_requests",
                                    "queue/nr_zones",
                                    "queue/optimal_io_size",
                                    "queue/physical_block_size",
                                    "queue/read_ahead_kb",
                                    "queue/rotational",
                                    "queue/scheduler",
                                    "queue/write_same_max_bytes",
                                    "queue/zone_append_max_bytes",
                                    "queue/zone_write_granularity",
                                    "queue/zoned",
                                    "range",
                                    "removable",
                                    "start",
                                    "wwid"};

std::string directoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

// The names of a path after "." and ".." have been followed; empty for one that leads out of the root.
std::string plainPath(const std::string& directory, std::string_view target)
{
    std::string path(beginsWith(target, "/") ? "" : directory);
    while (!target.empty()) {
        const std::string_view name = takeUntil(target, '/');
        if (name == "..") {
            if (path.empty()) {
                return "";
            }
            path = directoryOf(path);
        } else if (!name.empty() && name != ".") {
            path.append(path.empty() ? "" : "/").append(name);
        }
    }
    return path;
}

class Copier {
public:
    explicit Copier(const Root& root)
        : state(root), tree(Root::recorded(root.path(), root.name())), isLive(root.isLive())
    {
    }

    Copy take()
    {
        state.tree.witness = [this](const std::string& path, bool isListing) { add(path, isListing); };
        readMachine(state, allFacts);
        state.tree.witness = {};
        for (const Device& device : state.devices) {
            addForLsblk(device);
        }
        add("sys/block", true);
        add("sys/dev/block", true);
        if (isLive) {
            addNodesOfDevices();
            addFile(nodesFile, nodes);
        }
        return std::move(copy);
    }

private:
    using Type = CopiedFile::Type;

    void addEntry(const std::string& path, Type type, std::string content)
    {
        addDirectoriesAbove(copy.files, path);
        copy.files[path] = {type, std::move(content)};
    }
    void addFile(const std::string& path, std::string content) { addEntry(path, Type::file, std::move(content)); }
    void addDirectory(const std::string& path)
    {
        if (!path.empty()) {
            addDirectoriesAbove(copy.files, path);
            copy.files.emplace(path, CopiedFile());
        }
    }
    void addLink(const std::string& path, const std::string& target)
    {
        const std::string destination = plainPath(directoryOf(path), target);
        if (!destination.empty()) {
            addEntry(path, Type::link, relativeLink(directoryOf(path), destination));
        }
    }

    // What is at a path, with all links on the way.
    void add(const std::string& path, bool isListing)
    {
        if (!asked.insert(path + (isListing ? "/" : "")).second) {
            return;
        }
        // procfs has a directory for each process, and a link to that of this one.
        if (isLive && beginsWith(path, "proc/")) {
            addContentAs(path, state.tree.open(Top::proc, path.substr(5), O_RDONLY));
            return;
        }
        // Files of one directory are asked for one after the other.
        const std::string directory = directoryOf(path);
        if (directory != lastDirectory) {
            last = followed(directory);
            lastDirectory = directory;
        }
        if (!last.file.isOpen()) {
            return;
        }
        const std::string name = path.substr(directory.empty() ? 0 : directory.size() + 1);
        const Descriptor place(::openat(last.file.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat status {};
        if (!place.isOpen() || ::fstat(place.get(), &status) != 0) {
            return;
        }
        if (S_ISLNK(status.st_mode)) {
            const Destination destination = followed(path);
            if (destination.file.isOpen() && ::fstat(destination.file.get(), &status) == 0) {
                const Destination parent = tree.follow(directoryOf(destination.path));
                addFound(destination.path.substr(1), parent.file.get(), status, isListing);
            }
            return;
        }
        addFound((last.path == "/" ? "" : last.path.substr(1) + "/") + name, last.file.get(), status, isListing);
    }

    // `path` is without links; `parent` is the directory that holds it.
    void addFound(const std::string& path, int parent, const struct stat& status, bool isListing)
    {
        const std::string name = path.substr(path.rfind('/') + 1);
        if (S_ISDIR(status.st_mode)) {
            addDirectory(path);
            if (isListing) {
                addEntries(path,
                           Descriptor(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)));
            }
        } else if (S_ISREG(status.st_mode)) {
            addContent(path, parent, name);
        }
    }

    void addContent(const std::string& path, int parent, const std::string& name)
    {
        addContentAs(path, Descriptor(::openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK)));
    }

    // `file` was opened just now.
    void addContentAs(const std::string& path, const Descriptor& file)
    {
        if (!file.isOpen() && (errno == ENOENT || errno == ENOTDIR)) {
            return;
        }
        Marks marks = file.isOpen() ? Marks{noMark} : Marks{unreadable};
        if (!file.isOpen() && (errno == EACCES || errno == EPERM)) {
            copy.unreadable.insert(path);
        }
        std::string content;
        if (file.isOpen()) {
            content = files.content(file.get(), longestFile, marks);
        }
        if (marks == noMark) {
            addFile(path, std::move(content));
        } else if ((marks & unreadable) != 0) {
            addDirectory(path);
        }
    }

    Destination followed(const std::string& path)
    {
        return tree.follow(path, [this](const std::string& link, const std::string& target) { addLink(link, target); });
    }

    // The links in a directory, and of those under /dev what else is there.
    void addEntries(const std::string& path, const Descriptor& directory)
    {
        const bool isDev = path == "dev" || beginsWith(path, "dev/");
        std::vector<std::pair<std::string, unsigned char>> entries;
        if (directory.isOpen()) {
            Marks ignored = noMark;
            files.entries(directory.get(), ignored, [&](std::string_view name, unsigned char type) {
                entries.emplace_back(std::string(name), type);
            });
        }
        for (const auto& [name, type] : entries) {
            const std::string entry = std::string(path).append("/").append(name);
            if (type == DT_LNK) {
                addLinkIn(directory.get(), entry, name, isDev);
            } else if (isDev && isLive && type != DT_DIR) {
                addNode("/" + entry);
            } else if (isDev && !isLive && type == DT_REG) {
                addContent(entry, directory.get(), name);
            }
        }
    }

    // Links under /dev that lead out of it, such as /dev/stdin, name no devices.
    void addLinkIn(int directory, const std::string& path, const std::string& name, bool isDev)
    {
        char target[PATH_MAX];
        const ssize_t length = ::readlinkat(directory, name.c_str(), target, sizeof target);
        const std::string text(target, length > 0 ? static_cast<std::size_t>(length) : 0);
        if (!text.empty() && (!isDev || beginsWith(plainPath(directoryOf(path), text), "dev/"))) {
            addLink(path, text);
        }
    }

    // Those that are there by their name, although no list of their directory shows them.
    void addNodesOfDevices()
    {
        for (const Device& device : state.devices) {
            for (const std::string& path : {std::string(device.node), "/dev/" + std::string(device.kernelName)}) {
                struct stat status {};
                if (::lstat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode)) {
                    addNode(path);
                }
            }
        }
    }

    void addNode(const std::string& path)
    {
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0 || !listedNodes.insert(path).second) {
            return;
        }
        Node node;
        // Not opened: that may do something to a device.
        node.isReadable = ::access(path.c_str(), R_OK) == 0;
        if (S_ISBLK(status.st_mode)) {
            node.number = DeviceNumber{major(status.st_rdev), minor(status.st_rdev)};
        }
        nodes += nodeLine(path, node);
        if (node.number && !node.isReadable) {
            copy.unreadable.insert(path.substr(1));
        }
    }

    void addForLsblk(const Device& device)
    {
        std::string name(device.kernelName);
        std::replace(name.begin(), name.end(), '/', '!');
        const std::string place = "sys/class/block/" + name;
        for (const char* const attribute : forLsblk) {
            add(place + "/" + attribute, false);
        }
        add(place + "/holders", true);
        add(place + "/slaves", true);
        if (device.number) {
            add("sys/dev/block/" + std::to_string(device.number->major) + ":" + std::to_string(device.number->minor),
                false);
        }
        addSubsystems(followed(place).path);
        if (isLive) {
            addPropertiesOf(device);
        }
    }

    // Of a device and all above it: lsblk shows them as one chain.
    void addSubsystems(const std::string& place)
    {
        for (std::string above = place; beginsWith(above, "/sys/devices/"); above = directoryOf(above)) {
            const Descriptor directory = tree.follow(above).file;
            if (directory.isOpen() && asked.insert(above).second) {
                addLinkIn(directory.get(), above.substr(1) + "/subsystem", "subsystem", false);
            }
        }
    }

    // The file of a node, which lsblk reads in a recorded root in the place of udev's database. The model is as it
    // would be by the database, because it knows a property by its name there, too.
    void addPropertiesOf(const Device& device)
    {
        if (!device.number) {
            return;
        }
        const std::string place =
            "run/udev/data/b" + std::to_string(device.number->major) + ":" + std::to_string(device.number->minor);
        const auto entry = copy.files.find(place);
        if (entry == copy.files.end() || entry->second.type != Type::file) {
            return;
        }
        std::string properties;
        for (std::string_view rest = entry->second.content; !rest.empty();) {
            const std::string_view line = takeUntil(rest, '\n');
            if (beginsWith(line, "E:ID_MODEL_ENC=")) {
                properties.append(line).append("\n");
            } else if (beginsWith(line, "E:")) {
                properties.append(line.substr(2)).append("\n");
            }
        }
        const std::string node = tree.follow(std::string(device.node)).path;
        if (beginsWith(node, "/dev/") && node.find("/../") == std::string::npos) {
            addFile(node.substr(1), std::move(properties));
        }
    }

    Machine::State state;
    Tree tree;
    bool isLive;
    FileReader files;
    Copy copy;
    std::string nodes;
    std::set<std::string> listedNodes;
    std::set<std::string> asked;
    std::string lastDirectory = "//";  // of none
    Destination last;
};

}  // namespace

void addDirectoriesAbove(CopiedFiles& files, const std::string& path)
{
    for (std::size_t slash = path.rfind('/'); slash != std::string::npos && slash > 0;
         slash = path.rfind('/', slash - 1)) {
        if (!files.emplace(path.substr(0, slash), CopiedFile()).second) {
            return;
        }
    }
}

std::string relativeLink(const std::string& directory, const std::string& target)
{
    std::string link;
    std::string above = directory;
    while (!above.empty() && !beginsWith(target, above + "/")) {
        link += "../";
        above = directoryOf(above);
    }
    return link + target.substr(above.empty() ? 0 : above.size() + 1);
}

Copy copyOf(const Root& root)
{
    try {
        return Copier(root).take();
    } catch (const ReadError& error) {
        const std::string text = error.what();
        throw ReadError(text.find(root.name()) == std::string::npos ? text + " below " + root.name() : text);
    }
}

}  // namespace kivclaim::machine
