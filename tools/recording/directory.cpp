#include "tools/recording/directory.h"

#include "machine/descriptor.h"
#include "tools/recording/manifest.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

using kivclaim::machine::CopiedFile;
using kivclaim::machine::CopiedFiles;
using kivclaim::machine::Descriptor;
using Type = kivclaim::machine::CopiedFile::Type;

namespace kivclaim::tools {

namespace {

[[noreturn]] void failOn(const std::string& path)
{
    throw RecordingError("'" + path + "' cannot be read (" + std::strerror(errno) + ")");
}

// Up to `most` bytes, and one more of a longer file.
std::string contentOf(int directory, const char* name, std::uint64_t most, const std::string& path)
{
    const Descriptor file(::openat(directory, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        failOn(path);
    }
    if (!S_ISREG(status.st_mode)) {
        throw RecordingError("'" + path + "' in it is no file");
    }
    std::string content;
    char buffer[65536];
    ssize_t count = 0;
    while (content.size() <= most && (count = ::read(file.get(), buffer, sizeof buffer)) > 0) {
        content.append(buffer, static_cast<std::size_t>(count));
    }
    if (count < 0) {
        failOn(path);
    }
    return content;
}

class DirectoryReader {
public:
    explicit DirectoryReader(const Manifest& manifest) : manifest(manifest) {}

    // `place` is "" or ends with a slash. Takes the descriptor over.
    void read(int directory, const std::string& place, std::size_t depth)
    {
        const std::unique_ptr<DIR, int (*)(DIR*)> entries(::fdopendir(directory), &::closedir);
        if (entries == nullptr) {
            failOn(place);
        }
        while (const dirent* const entry = ::readdir(entries.get())) {
            const std::string name = entry->d_name;
            if (name != "." && name != ".." && place + name != manifestFile) {
                add(::dirfd(entries.get()), name, place + name, depth);
            }
        }
    }

    CopiedFiles files;

private:
    void add(int directory, const std::string& name, const std::string& path, std::size_t depth)
    {
        struct stat status {};
        if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            failOn(path);
        }
        CopiedFile file;
        if (S_ISLNK(status.st_mode)) {
            char target[PATH_MAX];
            const ssize_t length = ::readlinkat(directory, name.c_str(), target, sizeof target);
            file = {Type::link, std::string(target, length > 0 ? static_cast<std::size_t>(length) : 0)};
        } else if (S_ISREG(status.st_mode)) {
            file = {Type::file, contentOf(directory, name.c_str(), manifest.bytesOf(path), path)};
        } else if (!S_ISDIR(status.st_mode) || depth >= deepestRecordedFile) {
            throw RecordingError("'" + path + "' in it is neither file, link nor directory");
        }
        manifest.check(path, file);
        files[path] = std::move(file);
        if (S_ISDIR(status.st_mode)) {
            read(::openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC), path + "/",
                 depth + 1);
        }
    }

    const Manifest& manifest;
};

void writeFile(const std::string& path, const std::string& content)
{
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    std::size_t written = 0;
    while (file.isOpen() && written < content.size()) {
        const ssize_t count = ::write(file.get(), content.data() + written, content.size() - written);
        if (count < 0 && errno != EINTR) {
            break;
        }
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    if (!file.isOpen() || written < content.size()) {
        throw RecordingError("'" + path + "' cannot be written (" + std::strerror(errno) + ")");
    }
}

void write(const std::string& path, const CopiedFile& file)
{
    if (file.type == Type::file) {
        writeFile(path, file.content);
    } else if ((file.type == Type::link ? ::symlink(file.content.c_str(), path.c_str())
                                        : ::mkdir(path.c_str(), 0755)) != 0) {
        throw RecordingError("'" + path + "' cannot be made (" + std::strerror(errno) + ")");
    }
}

}  // namespace

bool hasManifest(const std::string& directory)
{
    struct stat status {};
    return ::lstat((directory + "/" + manifestFile).c_str(), &status) == 0;
}

Recording readDirectory(const std::string& directory)
{
    const Descriptor root(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const Descriptor ours(
        root.isOpen() ? ::openat(root.get(), "kivclaim", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1);
    if (!ours.isOpen()) {
        failOn(manifestFile);
    }
    const std::string text = contentOf(ours.get(), "manifest.json", mostRecordedBytes, manifestFile);
    const Manifest manifest = manifestIn(text);
    DirectoryReader reader(manifest);
    reader.read(::openat(root.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC), "", 1);
    manifest.checkComplete(reader.files);
    checkDirectories(reader.files);
    Recording recording = manifest.about;
    recording.files = std::move(reader.files);
    return recording;
}

void writeDirectory(const Recording& recording, const std::string& directory)
{
    CopiedFiles all;
    all[manifestFile] = {Type::file, manifestOf(recording)};
    kivclaim::machine::addDirectoriesAbove(all, manifestFile);
    // In the order of their paths a directory comes before what is in it.
    for (const CopiedFiles* const files : {&recording.files, &const_cast<const CopiedFiles&>(all)}) {
        for (const auto& [path, file] : *files) {
            if (files == &recording.files || recording.files.count(path) == 0) {
                write(std::string(directory).append("/").append(path), file);
            }
        }
    }
}

void syncToDisk(const std::string& directory)
{
    const Descriptor written(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!written.isOpen() || ::syncfs(written.get()) != 0) {
        throw RecordingError("'" + directory + "' cannot be written to disk (" + std::strerror(errno) + ")");
    }
}

}  // namespace kivclaim::tools
