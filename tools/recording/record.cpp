// Takes a machine along in a file or a directory.
#include "machine/descriptor.h"
#include "tools/commands.h"
#include "tools/output.h"
#include "tools/recording/archive.h"
#include "tools/recording/directory.h"
#include "tools/recording/recorder.h"
#include "tools/recording/redaction.h"
#include "tools/recording/scratch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

using kivclaim::machine::Descriptor;
using kivclaim::machine::ReadError;

namespace kivclaim::tools {

namespace {

constexpr std::string_view archiveEnd = ".tar.zst";

bool isArchive(const std::string& path)
{
    return path.size() > archiveEnd.size() &&
           path.compare(path.size() - archiveEnd.size(), archiveEnd.size(), archiveEnd) == 0;
}

// Before anything is done: only an earlier recording is replaced, and only one in a file.
void requireFree(const std::string& path)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return;
    }
    std::error_code error;
    if (isArchive(path) ? !S_ISREG(status.st_mode)
                        : !S_ISDIR(status.st_mode) || !std::filesystem::is_empty(path, error)) {
        throw CommandError("'" + path + "' is there already; give a new name, which for a file ends with .tar.zst");
    }
}

void requireDisks(const std::vector<std::string>& disks)
{
    for (const std::string& disk : disks) {
        const bool isName = !disk.empty() && std::all_of(disk.begin(), disk.end(), [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        });
        if (!isName) {
            throw CommandError("'" + disk + "' is no name of a disk; give one such as sdc");
        }
    }
}

std::string withoutSlashes(const std::string& path)
{
    const std::size_t last = path.find_last_not_of('/');
    return last == std::string::npos ? path : path.substr(0, last + 1);
}

// So that the new name is on the disk, too.
void syncDirectoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const Descriptor opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.isOpen()) {
        ::fsync(opened.get());
    }
}

void write(const Recording& recording, const std::string& path)
{
    const Scratch scratch = isArchive(path) ? Scratch::fileBeside(path) : Scratch::directoryBeside(path);
    if (isArchive(path)) {
        writeArchive(recording, scratch.path());
    } else {
        writeDirectory(recording, scratch.path());
        syncToDisk(scratch.path());
    }
    if (std::rename(scratch.path().c_str(), path.c_str()) != 0) {
        throw RecordingError(std::strerror(errno));
    }
    syncDirectoryOf(path);
}

}  // namespace

ExitStatus record(const SessionOptions& options, const RecordOptions& request)
{
    const std::string path = withoutSlashes(request.path);
    requireDisks(request.disks);
    if (!request.disks.empty() && !options.sysroot.empty()) {
        throw CommandError("--volume-manager asks the volume manager of this machine; leave out --sysroot");
    }
    requireFree(path);
    try {
        const TakenRecording taken = takeRecording(options.root(), request.disks);
        for (const std::string& gap : taken.gaps) {
            complain(gap);
        }
        write(request.redact ? redacted(taken.recording) : taken.recording, path);
    } catch (const ReadError& error) {
        throw CommandError(error.what());
    } catch (const RecordingError& error) {
        throw CommandError("cannot write the recording '" + path + "': " + error.what() +
                           "; give a name in a directory with space left that you may write to");
    }
    return answeredYes;
}

}  // namespace kivclaim::tools
