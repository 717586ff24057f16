#include "tools/recording/archive.h"

#include "machine/descriptor.h"
#include "tools/recording/manifest.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>

using kivclaim::machine::CopiedFile;
using kivclaim::machine::CopiedFiles;
using kivclaim::machine::Descriptor;
using Type = kivclaim::machine::CopiedFile::Type;

namespace kivclaim::tools {

namespace {

constexpr std::size_t blockBytes = 65536;

struct FreeReader {
    void operator()(archive* reader) const { archive_read_free(reader); }
};
struct FreeWriter {
    void operator()(archive* writer) const { archive_write_free(writer); }
};
struct FreeEntry {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
using Reader = std::unique_ptr<archive, FreeReader>;
using Writer = std::unique_ptr<archive, FreeWriter>;

[[noreturn]] void refuse(archive* reader)
{
    const char* const reason = archive_error_string(reader);
    throw RecordingError(std::string("it is no archive, or was cut or altered (") +
                         (reason != nullptr ? reason : "no reason given") + ")");
}

Reader newReader()
{
    Reader reader(archive_read_new());
    if (reader == nullptr) {
        throw std::bad_alloc();
    }
    archive_read_support_filter_zstd(reader.get());
    archive_read_support_format_tar(reader.get());
    return reader;
}

// Takes the entries of an archive, of which the first is the manifest.
class ArchiveReader {
public:
    explicit ArchiveReader(archive* reader) : reader(reader) {}

    Recording read()
    {
        archive_entry* entry = next();
        if (entry == nullptr || nameOf(entry) != manifestFile || archive_entry_filetype(entry) != AE_IFREG) {
            throw RecordingError("it does not begin with the manifest of a recording");
        }
        manifest = manifestIn(contentOf(mostRecordedBytes));
        while ((entry = next()) != nullptr) {
            add(entry);
        }
        manifest.checkComplete(files);
        checkDirectories(files);
        Recording recording = manifest.about;
        recording.files = std::move(files);
        return recording;
    }

private:
    archive_entry* next()
    {
        archive_entry* entry = nullptr;
        const int result = archive_read_next_header(reader, &entry);
        if (result == ARCHIVE_EOF) {
            return nullptr;
        }
        if (result != ARCHIVE_OK) {
            refuse(reader);
        }
        return entry;
    }

    // Directories end with a slash.
    static std::string nameOf(archive_entry* entry)
    {
        const char* const path = archive_entry_pathname(entry);
        std::string name = path != nullptr ? path : "";
        if (name.size() > 1 && name.back() == '/') {
            name.pop_back();
        }
        return name;
    }

    void add(archive_entry* entry)
    {
        const std::string path = nameOf(entry);
        checkPath(path);
        CopiedFile file = fileOf(entry, path);
        manifest.check(path, file);
        if (!files.emplace(path, std::move(file)).second) {
            throw RecordingError("it holds '" + path + "' twice");
        }
    }

    CopiedFile fileOf(archive_entry* entry, const std::string& path)
    {
        const auto type = archive_entry_filetype(entry);
        if (archive_entry_hardlink(entry) != nullptr || (type != AE_IFDIR && type != AE_IFREG && type != AE_IFLNK)) {
            throw RecordingError("'" + path + "' in it is neither file, link nor directory");
        }
        if (type == AE_IFLNK) {
            const char* const target = archive_entry_symlink(entry);
            return {Type::link, target != nullptr ? target : ""};
        }
        return type == AE_IFDIR ? CopiedFile() : CopiedFile{Type::file, contentOf(manifest.bytesOf(path))};
    }

    // Up to `most` bytes, and some more of a longer file.
    std::string contentOf(std::uint64_t most)
    {
        std::string content;
        char buffer[blockBytes];
        for (;;) {
            const la_ssize_t count = archive_read_data(reader, buffer, sizeof buffer);
            if (count < 0) {
                refuse(reader);
            }
            content.append(buffer, static_cast<std::size_t>(count));
            if (content.size() > most && most == mostRecordedBytes) {
                throw RecordingError("it unpacks to more than 1 GiB");
            }
            if (count == 0 || content.size() > most) {
                return content;
            }
        }
    }

    archive* reader;
    Manifest manifest;
    CopiedFiles files;
};

void check(archive* writer, int result)
{
    if (result != ARCHIVE_OK) {
        const char* const reason = archive_error_string(writer);
        throw RecordingError(std::string("it cannot be written (") + (reason != nullptr ? reason : "") + ")");
    }
}

void write(archive* writer, const std::string& path, const CopiedFile& file)
{
    const std::unique_ptr<archive_entry, FreeEntry> entry(archive_entry_new());
    if (entry == nullptr) {
        throw std::bad_alloc();
    }
    archive_entry_set_pathname(entry.get(), path.c_str());
    archive_entry_set_mtime(entry.get(), 0, 0);
    if (file.type == Type::link) {
        archive_entry_set_filetype(entry.get(), AE_IFLNK);
        archive_entry_set_symlink(entry.get(), file.content.c_str());
        archive_entry_set_perm(entry.get(), 0777);
    } else {
        const bool isFile = file.type == Type::file;
        archive_entry_set_filetype(entry.get(), isFile ? AE_IFREG : AE_IFDIR);
        archive_entry_set_perm(entry.get(), isFile ? 0644 : 0755);
        archive_entry_set_size(entry.get(), isFile ? static_cast<la_int64_t>(file.content.size()) : 0);
    }
    check(writer, archive_write_header(writer, entry.get()));
    if (file.type == Type::file && !file.content.empty()) {
        const la_ssize_t count = archive_write_data(writer, file.content.data(), file.content.size());
        check(writer, count == static_cast<la_ssize_t>(file.content.size()) ? ARCHIVE_OK : ARCHIVE_FATAL);
    }
}

}  // namespace

Recording archiveIn(std::string_view bytes)
{
    const Reader reader = newReader();
    if (archive_read_open_memory(reader.get(), bytes.data(), bytes.size()) != ARCHIVE_OK) {
        refuse(reader.get());
    }
    return ArchiveReader(reader.get()).read();
}

Recording readArchive(const std::string& path)
{
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        throw RecordingError(std::string("it cannot be read (") + std::strerror(errno) + ")");
    }
    if (!S_ISREG(status.st_mode)) {
        throw RecordingError("it is neither a file nor a directory");
    }
    const Reader reader = newReader();
    if (archive_read_open_fd(reader.get(), file.get(), blockBytes) != ARCHIVE_OK) {
        refuse(reader.get());
    }
    return ArchiveReader(reader.get()).read();
}

void writeArchive(const Recording& recording, const std::string& path)
{
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC));
    if (!file.isOpen()) {
        throw RecordingError(std::string("it cannot be written (") + std::strerror(errno) + ")");
    }
    const Writer writer(archive_write_new());
    if (writer == nullptr) {
        throw std::bad_alloc();
    }
    // This form keeps names as bytes; others want to know their character set.
    check(writer.get(), archive_write_set_format_gnutar(writer.get()));
    check(writer.get(), archive_write_add_filter_zstd(writer.get()));
    check(writer.get(), archive_write_open_fd(writer.get(), file.get()));
    write(writer.get(), manifestFile, {Type::file, manifestOf(recording)});
    for (const auto& [name, content] : recording.files) {
        write(writer.get(), name, content);
    }
    check(writer.get(), archive_write_close(writer.get()));
    if (::fsync(file.get()) != 0) {
        throw RecordingError(std::string("it cannot be written to disk (") + std::strerror(errno) + ")");
    }
}

}  // namespace kivclaim::tools
