#include "tools/recording/recorder.h"

#include "claim/kiv_release.h"
#include "tools/list_command.h"
#include "tools/recorded_commands.h"
#include "tools/recording/command_capture.h"
#include "tools/recording/directory.h"
#include "tools/utc_time.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

using kivclaim::machine::Copy;
using kivclaim::machine::RecordedFiles;
using kivclaim::machine::Root;
using Type = kivclaim::machine::CopiedFile::Type;

namespace kivclaim::tools {

namespace {

constexpr char releaseFile[] = "proc/sys/kernel/osrelease";
// As the native module asks, blanks included.
constexpr char nodeQuery[] = "/usr/sbin/ztkivadm   getkivnode  nodename=";
constexpr char pathQuery[] = "/usr/sbin/ztkivadm   getsubpaths  kivnodename=";
constexpr const char* tools[] = {listCommand, "/usr/bin/lsblk", "/usr/bin/udevadm"};
constexpr std::size_t mostUnreadableNamed = 3;

std::string secondsText(double seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3f\n", seconds);
    return text;
}

// The first word of the first row below a table's heading and rule, as the native module takes it.
std::string nodeIn(const std::string& table)
{
    std::istringstream lines(table);
    std::string line;
    for (int i = 0; std::getline(lines, line); ++i) {
        std::string node;
        if (i >= 2 && std::istringstream(line) >> node) {
            return node;
        }
    }
    return "";
}

// Of a file, too: a recording has a place for each command.
bool isPlainName(const std::string& node)
{
    return !node.empty() && node.size() < 128 && node != "." && node != ".." &&
           std::all_of(node.begin(), node.end(), [](char c) {
               return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("_-.:+", c) != nullptr;
           });
}

class Recorder {
public:
    explicit Recorder(const Root& root)
    {
        Copy copy = machine::copyOf(root);
        unreadable = std::move(copy.unreadable);
        taken.recording.files = std::move(copy.files);
        machine::addDirectoriesAbove(taken.recording.files, manifestFile);
        taken.recording.kivclaim = kivclaim_release_identification;
        taken.recording.time = utcNow();
    }

    TakenRecording ofThisMachine(const std::vector<std::string>& disks)
    {
        addSystem();
        add(listCommand);
        taken.recording.versions = toolVersions();
        for (const std::string& disk : disks) {
            addVolumeManagersDisk(disk);
        }
        reportUnreadable();
        return std::move(taken);
    }

    TakenRecording ofRecorded(const Root& root)
    {
        copyAll(root, "kivclaim");
        const std::optional<std::string> release = RecordedFiles(root).content(releaseFile, sizeof utsname{}.release);
        if (release) {
            addFile(releaseFile, *release);
        }
        reportUnreadable();
        return std::move(taken);
    }

private:
    void addFile(const std::string& path, std::string content)
    {
        machine::addDirectoriesAbove(taken.recording.files, path);
        taken.recording.files[path] = {Type::file, std::move(content)};
    }

    void addSystem()
    {
        utsname system{};
        ::uname(&system);
        taken.recording.system = {{"sysname", system.sysname},
                                  {"nodename", system.nodename},
                                  {"release", system.release},
                                  {"version", system.version},
                                  {"machine", system.machine}};
        addFile(releaseFile, std::string(system.release) + "\n");
    }

    // What it printed.
    std::string add(const std::string& command)
    {
        const CapturedCommand captured = capture(command);
        const std::string outcome = captured.status.substr(0, captured.status.find('\n'));
        if (captured.status.empty()) {
            taken.gaps.push_back(command + " was not run: " + captured.problem);
        } else if (captured.status == missingProgram) {
            taken.gaps.push_back(command.substr(0, command.find(' ')) + " is not installed, and so it is recorded");
        } else if (!captured.hasSucceeded()) {
            taken.gaps.push_back(command + " failed with " + outcome + ", and so it is recorded");
        }
        if (captured.status.empty()) {
            return "";
        }
        addFile(placeOfCommand(command, "status"), captured.status);
        if (captured.status != missingProgram) {
            addFile(placeOfCommand(command, "output"), captured.output);
            addFile(placeOfCommand(command, "errors"), captured.errors);
            addFile(placeOfCommand(command, "seconds"), secondsText(captured.seconds));
        }
        return captured.output;
    }

    // The node of a disk, and the paths of that node.
    void addVolumeManagersDisk(const std::string& disk)
    {
        const std::string node = nodeIn(add(nodeQuery + disk));
        if (isPlainName(node)) {
            add(pathQuery + node);
        } else {
            taken.gaps.push_back("the volume manager names no node of " + disk + ", so its paths are not recorded");
        }
    }

    // Files below a directory of a recorded root which nothing of this program interprets now.
    void copyAll(const Root& root, const std::string& directory)
    {
        const RecordedFiles files(root);
        std::error_code error;
        const std::filesystem::path top = std::filesystem::path(root.path()) / directory;
        if (std::filesystem::is_symlink(top, error)) {
            return;  // it may lead out of the root
        }
        for (std::filesystem::recursive_directory_iterator i(top, error), end; !error && i != end; i.increment(error)) {
            const std::string path = directory + "/" + i->path().lexically_relative(top).string();
            if (i->is_regular_file(error) && !i->is_symlink(error) && path != manifestFile) {
                addFile(path, files.content(path, 16UL * 1024 * 1024).value_or(""));
            }
        }
    }

    void reportUnreadable()
    {
        if (unreadable.empty()) {
            return;
        }
        std::string names;
        std::size_t count = 0;
        for (const std::string& path : unreadable) {
            if (++count <= mostUnreadableNamed) {
                names += (names.empty() ? "/" : ", /") + path;
            }
        }
        if (count > mostUnreadableNamed) {
            names += " and " + std::to_string(count - mostUnreadableNamed) + " more";
        }
        taken.gaps.push_back("no right to read " + names);
    }

    TakenRecording taken;
    std::set<std::string> unreadable;
};

}  // namespace

std::map<std::string, std::string> toolVersions()
{
    std::map<std::string, std::string> versions;
    for (const std::string tool : tools) {
        const CapturedCommand captured = capture(tool + " --version");
        if (captured.hasSucceeded()) {
            versions[tool] = captured.output.substr(0, captured.output.find('\n'));
        }
    }
    return versions;
}

TakenRecording takeRecording(const Root& root, const std::vector<std::string>& disks)
{
    Recorder recorder(root);
    if (root.isLive()) {
        return recorder.ofThisMachine(disks);
    }
    if (!hasManifest(root.path())) {
        return recorder.ofRecorded(root);
    }
    // Already one: nothing is lost of it.
    return {readDirectory(root.path()), {}};
}

}  // namespace kivclaim::tools
