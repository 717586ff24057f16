// Whatever an archive holds, reading it as a recording refuses it or gives files that stay within their root.
//
// An input that begins with '!' is the archive itself, after that character. In any other, each line makes an entry of
// an archive with a right manifest: "+sys/a text" a file, ">sys/b a" a link, "=sys" a directory, "|sys/c" a FIFO,
// "&sys/d sys/a" a hard link; "%" and a text replaces the manifest.
#include "fuzz/scripted_runner.h"
#include "tools/recording/archive.h"
#include "tools/recording/directory.h"
#include "tools/recording/manifest.h"
#include "tools/recording/redaction.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

using namespace kivclaim::tools;
using kivclaim::machine::CopiedFile;
using Type = CopiedFile::Type;

namespace {

constexpr std::size_t mostBytes = 1UL << 20;
constexpr std::size_t mostLines = 64;

// In memory, where there is such a place; one root for each process.
class Place {
public:
    Place()
    {
        std::string pattern =
            std::filesystem::is_directory("/dev/shm") ? "/dev/shm/recording-fuzz-XXXXXX" : "/tmp/recording-fuzz-XXXXXX";
        fuzz::check(mkdtemp(pattern.data()) != nullptr, "a directory for the roots");
        top = pattern;
    }
    ~Place() { std::filesystem::remove_all(top); }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    std::string root() const { return top + "/root"; }

private:
    std::string top;
};

struct Entry {
    std::string path;
    char kind = '+';
    std::string content;
};

void write(archive* writer, const Entry& each)
{
    archive_entry* const entry = archive_entry_new();
    const bool isFile = each.kind == '+' || each.kind == '%';
    archive_entry_set_pathname(entry, each.path.c_str());
    archive_entry_set_filetype(entry, each.kind == '='   ? AE_IFDIR
                                      : each.kind == '>' ? AE_IFLNK
                                      : each.kind == '|' ? AE_IFIFO
                                                         : AE_IFREG);
    archive_entry_set_perm(entry, 0644);
    if (each.kind == '>') {
        archive_entry_set_symlink(entry, each.content.c_str());
    } else if (each.kind == '&') {
        archive_entry_set_hardlink(entry, each.content.c_str());
    }
    archive_entry_set_size(entry, isFile ? static_cast<la_int64_t>(each.content.size()) : 0);
    if (archive_write_header(writer, entry) == ARCHIVE_OK && isFile) {
        archive_write_data(writer, each.content.data(), each.content.size());
    }
    archive_entry_free(entry);
}

std::string archiveOf(const std::vector<Entry>& entries)
{
    std::string bytes(mostBytes, '\0');
    std::size_t used = 0;
    archive* const writer = archive_write_new();
    archive_write_set_format_gnutar(writer);
    archive_write_open_memory(writer, bytes.data(), bytes.size(), &used);
    for (const Entry& entry : entries) {
        write(writer, entry);
    }
    archive_write_free(writer);
    bytes.resize(used);
    return bytes;
}

std::string archiveOf(std::string_view text)
{
    Recording recording;
    std::vector<Entry> entries = {{manifestFile, '+', ""}};
    std::vector<std::string> lines = fuzz::linesOf(text);
    lines.resize(std::min(lines.size(), mostLines));
    std::string manifest;
    for (const std::string& line : lines) {
        const std::size_t blank = line.find(' ');
        if (line.empty() || std::string_view("+>=|&%").find(line.front()) == std::string_view::npos) {
            continue;
        }
        const Entry entry = {line.substr(1, blank == std::string::npos ? blank : blank - 1), line.front(),
                             blank == std::string::npos ? "" : line.substr(blank + 1)};
        if (entry.kind == '%') {
            manifest = line.substr(1);
            continue;
        }
        recording.files[entry.path] = {entry.kind == '='   ? Type::directory
                                       : entry.kind == '>' ? Type::link
                                                           : Type::file,
                                       entry.content};
        entries.push_back(entry);
    }
    entries.front().content = manifest.empty() ? manifestOf(recording) : manifest;
    return archiveOf(entries);
}

void checkWithin(const std::string& root, const std::string& path)
{
    char real[PATH_MAX];
    if (::realpath(path.c_str(), real) != nullptr) {
        fuzz::check((std::string(real) + "/").rfind(root + "/", 0) == 0, "a link leads within the root");
    }
}

void checkRecording(const Recording& recording, const std::string& root)
{
    for (const auto& [path, file] : recording.files) {
        fuzz::check(!path.empty() && path.front() != '/' && ("/" + path + "/").find("/../") == std::string::npos,
                    "a name stays within the root");
    }
    ::mkdir(root.c_str(), 0700);
    try {
        writeDirectory(recording, root);
    } catch (const RecordingError&) {
        // Such as a path that is too long below this root.
    }
    for (const auto& [path, file] : recording.files) {
        std::string whole = root;
        whole.append("/").append(path);
        checkWithin(root, whole);
    }
    std::filesystem::remove_all(root);
    const Recording others = redacted(recording);
    checkDirectories(others.files);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const Place place;
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    try {
        const std::string bytes =
            !input.empty() && input.front() == '!' ? std::string(input.substr(1)) : archiveOf(input);
        checkRecording(archiveIn(bytes), place.root());
    } catch (const RecordingError&) {
        // Refused.
    }
    return 0;
}
