// Recordings that are none, were cut or altered, or are meant to do harm: refused in one line, with nothing written.
#include "tests/process.h"
#include "tests/sysfs_directory.h"
#include "tools/recording/archive.h"
#include "tools/recording/manifest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <archive.h>
#include <archive_entry.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using kivclaim::machine::CopiedFile;
using kivclaim::tools::archiveIn;
using kivclaim::tools::manifestOf;
using kivclaim::tools::RecordingError;
using testing::EndsWith;
using testing::HasSubstr;
using tests::Ended;
using Type = CopiedFile::Type;

namespace {

std::string contentOf(const std::string& path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// An entry of an archive, as an attacker could write it.
struct Entry {
    std::string path;
    unsigned int type = AE_IFREG;
    std::string content;  // of a link its target
    bool isHardLink = false;
};

std::string archiveOf(const std::vector<Entry>& entries)
{
    std::string bytes(1 << 20, '\0');
    std::size_t used = 0;
    archive* const writer = archive_write_new();
    archive_write_set_format_gnutar(writer);
    archive_write_set_bytes_in_last_block(writer, 1);
    archive_write_open_memory(writer, bytes.data(), bytes.size(), &used);
    for (const Entry& each : entries) {
        archive_entry* const entry = archive_entry_new();
        archive_entry_set_pathname(entry, each.path.c_str());
        archive_entry_set_filetype(entry, each.type);
        archive_entry_set_perm(entry, 0644);
        if (each.isHardLink) {
            archive_entry_set_hardlink(entry, each.content.c_str());
        } else if (each.type == AE_IFLNK) {
            archive_entry_set_symlink(entry, each.content.c_str());
        } else {
            archive_entry_set_size(entry, static_cast<la_int64_t>(each.content.size()));
        }
        EXPECT_EQ(archive_write_header(writer, entry), ARCHIVE_OK) << each.path;
        if (each.type == AE_IFREG && !each.isHardLink) {
            archive_write_data(writer, each.content.data(), each.content.size());
        }
        archive_entry_free(entry);
    }
    archive_write_close(writer);
    archive_write_free(writer);
    bytes.resize(used);
    return bytes;
}

kivclaim::tools::Recording smallRecording()
{
    kivclaim::tools::Recording recording;
    recording.files["dev"] = {};
    recording.files["kivclaim"] = {};
    recording.files["sys"] = {};
    recording.files["sys/a"] = {Type::file, "text"};
    recording.files["sys/b"] = {Type::link, "a"};
    return recording;
}

Entry manifestFor(const kivclaim::tools::Recording& recording)
{
    return {"kivclaim/manifest.json", AE_IFREG, manifestOf(recording)};
}

// The entries of a recording, well-formed unless its files are not.
std::vector<Entry> entriesOf(const kivclaim::tools::Recording& recording)
{
    std::vector<Entry> entries = {manifestFor(recording)};
    for (const auto& [path, file] : recording.files) {
        const unsigned int type = file.type == Type::directory ? AE_IFDIR
                                  : file.type == Type::link    ? AE_IFLNK
                                                               : AE_IFREG;
        entries.push_back({path, type, file.content});
    }
    return entries;
}

std::string objectionTo(const std::string& bytes)
{
    try {
        archiveIn(bytes);
    } catch (const RecordingError& error) {
        return error.what();
    }
    return "";
}

std::string objectionTo(const kivclaim::tools::Recording& recording)
{
    return objectionTo(archiveOf(entriesOf(recording)));
}

std::string objectionToFile(const std::string& path, const CopiedFile& file)
{
    kivclaim::tools::Recording recording = smallRecording();
    recording.files[path] = file;
    return objectionTo(recording);
}

std::string withReplaced(std::string text, const std::string& old, const std::string& fresh)
{
    const std::size_t place = text.find(old);
    EXPECT_NE(place, std::string::npos) << old;
    return text.replace(place, old.size(), fresh);
}

std::string objectionToManifest(const std::string& old, const std::string& fresh)
{
    std::vector<Entry> entries = entriesOf(smallRecording());
    entries.front().content = withReplaced(entries.front().content, old, fresh);
    return objectionTo(archiveOf(entries));
}

}  // namespace

TEST(BadRecording, AnUnchangedRecordingIsRead)
{
    EXPECT_EQ(objectionTo(smallRecording()), "");
    EXPECT_EQ(archiveIn(archiveOf(entriesOf(smallRecording()))).files.at("sys/a").content, "text");
}

TEST(BadRecording, NamesThatLeadOutsideAreRefused)
{
    for (const std::string path : {"../x", "/etc/x", "sys/../../x", "sys/./x", "sys//x", ".."}) {
        EXPECT_THAT(objectionToFile(path, {Type::file, ""}), EndsWith("leads outside or is none")) << path;
    }
    std::string deep = "sys";
    for (int i = 0; i < 100; ++i) {
        deep += "/d";
    }
    EXPECT_THAT(objectionToFile(deep, {Type::file, ""}), EndsWith("leads outside or is none"));
    EXPECT_THAT(objectionToFile("sys/" + std::string(256, 'x'), {Type::file, ""}),
                EndsWith("leads outside or is none"));
}

TEST(BadRecording, LinksThatLeadOutsideAreRefused)
{
    for (const std::string target : {"/etc", "../../etc", "../../..", "a/../../x", "b/..", ""}) {
        EXPECT_THAT(objectionToFile("sys/c", {Type::link, target}), HasSubstr("the link 'sys/c' leads outside"))
            << target;
    }
    EXPECT_EQ(objectionToFile("sys/c", {Type::link, "../sys/a"}), "");
}

TEST(BadRecording, AFileBelowALinkIsRefused)
{
    kivclaim::tools::Recording recording = smallRecording();
    recording.files["sys/d"] = {Type::link, "../dev"};
    recording.files["sys/d/x"] = {Type::file, "through the link"};
    EXPECT_EQ(objectionTo(recording), "'sys/d/x' is in no directory of it");
}

TEST(BadRecording, OtherKindsOfFilesAreRefused)
{
    for (const unsigned int type : {AE_IFIFO, AE_IFCHR, AE_IFBLK}) {
        std::vector<Entry> entries = entriesOf(smallRecording());
        entries[4].type = type;
        entries[4].content.clear();
        EXPECT_EQ(objectionTo(archiveOf(entries)), "'sys/a' in it is neither file, link nor directory");
    }
    std::vector<Entry> entries = entriesOf(smallRecording());
    entries[5] = {"sys/b", AE_IFREG, "sys/a", true};
    EXPECT_EQ(objectionTo(archiveOf(entries)), "'sys/b' in it is neither file, link nor directory");
}

TEST(BadRecording, ADuplicateMissingOrUnknownFileIsRefused)
{
    std::vector<Entry> entries = entriesOf(smallRecording());
    entries.push_back(entries[4]);
    EXPECT_EQ(objectionTo(archiveOf(entries)), "it holds 'sys/a' twice");
    entries.resize(entries.size() - 2);
    EXPECT_EQ(objectionTo(archiveOf(entries)), "'sys/b' is missing in it");
    entries.push_back({"sys/c", AE_IFREG, ""});
    EXPECT_EQ(objectionTo(archiveOf(entries)), "it holds 'sys/c', which its manifest does not name");
    EXPECT_EQ(objectionToManifest("\"sys/b\"", "\"sys/a\""), "it holds 'sys/a' twice");
}

TEST(BadRecording, AnAlteredFileIsRefused)
{
    std::vector<Entry> entries = entriesOf(smallRecording());
    entries[4].content = "texT";
    EXPECT_EQ(objectionTo(archiveOf(entries)), "'sys/a' in it was altered");
    entries[4].content = "text and more";
    EXPECT_EQ(objectionTo(archiveOf(entries)), "'sys/a' in it was altered");
    entries = entriesOf(smallRecording());
    entries[5].content = "../dev";
    EXPECT_EQ(objectionTo(archiveOf(entries)), "'sys/b' in it was altered");
}

TEST(BadRecording, AnAlteredManifestIsRefused)
{
    EXPECT_EQ(objectionToManifest("\"format\": 1", "\"format\": 2"),
              "it has format 2, and this release of kivclaim reads up to 1");
    for (const auto& [old, fresh] :
         {std::pair("\"format\"", "\"formal\""), std::pair("\"format\": 1", "\"format\": -1"),
          std::pair("\"redacted\": false", "\"redacted\": 0"), std::pair("\"system\": {}", "\"system\": []"),
          std::pair("\"bytes\": 4", R"("bytes": "4")"), std::pair("\"sys/a\"", "\"sys%2\""),
          std::pair("\"files\": [",
                    "\"files\": ["
                    "{},")}) {
        EXPECT_EQ(objectionToManifest(old, fresh), "its manifest was altered") << old;
    }
    EXPECT_EQ(objectionToManifest("{", "["), "its manifest was altered");
    EXPECT_EQ(objectionToManifest("\"sys/a\"", "\"sys/a%00\""), "its manifest was altered");
}

TEST(BadRecording, AnArchiveThatUnpacksToMoreThanOneGibibyteIsRefusedUnread)
{
    EXPECT_EQ(objectionToManifest("\"bytes\": 4", "\"bytes\": 1073741825"), "it unpacks to more than 1 GiB");
    EXPECT_EQ(objectionToManifest("\"bytes\": 4", "\"bytes\": 18446744073709551615"), "it unpacks to more than 1 GiB");
    EXPECT_EQ(
        objectionToManifest("\"files\": [", "\"files\": [{\"path\": \"x\", \"bytes\": 1073741824, \"sha256\": \"\"},"),
        "it unpacks to more than 1 GiB");
}

long peakKilobytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// A few kilobytes, compressed, that would take gigabytes when they were read.
TEST(BadRecording, AManifestThatIsMadeToTakeMemoryIsRefusedEarly)
{
    constexpr std::size_t size = 8UL * 1024 * 1024;
    const std::string good = manifestOf(smallRecording());
    const std::string files = "\"files\": [";
    const auto begin = good.substr(0, good.find(files));
    std::string zeros;
    std::string objects;
    while (zeros.size() < size) {
        zeros += "0,";
        objects += "{},";
    }
    for (const std::string& text : {std::string(size, '['), begin + files + std::string(size, '['),
                                    begin + files + zeros, begin + files + objects, "{\"x\": [" + zeros,
                                    "{\"x\": [" + objects, begin + R"("x": ")" + std::string(size, 'x')}) {
        const long before = peakKilobytes();
        try {
            kivclaim::tools::manifestIn(text);
            FAIL() << "accepted " << text.substr(0, 500);
        } catch (const RecordingError& error) {
            EXPECT_STREQ(error.what(), "its manifest was altered");
        }
        EXPECT_LT(peakKilobytes() - before, 16384) << text.substr(0, 500);
    }
}

TEST(BadRecording, AManifestOfManyFilesIsRead)
{
    kivclaim::tools::Recording recording = smallRecording();
    for (int i = 0; i < 5000; ++i) {
        recording.files["sys/" + std::to_string(i)] = {Type::file, std::to_string(i)};
        recording.system[std::to_string(i % 100)] = "x";
    }
    EXPECT_EQ(kivclaim::tools::manifestIn(manifestOf(recording)).files.size(), 5005U);
}

TEST(BadRecording, AnArchiveThatDoesNotBeginWithAManifestIsRefused)
{
    std::vector<Entry> entries = entriesOf(smallRecording());
    std::swap(entries[0], entries[1]);
    EXPECT_EQ(objectionTo(archiveOf(entries)), "it does not begin with the manifest of a recording");
    EXPECT_THAT(objectionTo(std::string()), HasSubstr("it is no archive, or was cut or altered"));
    EXPECT_THAT(objectionTo(std::string(2000, 'x')), HasSubstr("it is no archive, or was cut or altered"));
}

// The command and its files.
class BadRecordingFile : public testing::Test {
protected:
    BadRecordingFile()
    {
        tests::SysfsDirectory(root.path()).scsiDisk("sda", "0:0:0:0");
        run({"--sysroot", root.path(), "record", file()});
        run({"--sysroot", root.path(), "record", directory()});
    }

    Ended run(std::vector<std::string> arguments) const
    {
        tests::Process process(KIVCLAIM_COMMAND, std::move(arguments));
        return process.environment("LC_ALL", "C").environment("TMPDIR", temporary.path()).run();
    }
    std::string file() const { return recordings.path() + "/machine.tar.zst"; }
    std::string directory() const { return recordings.path() + "/machine"; }

    void expectRefused(const std::string& recording, const std::string& reason) const
    {
        const Ended ended = run({"--sysroot", recording, "list"});
        EXPECT_EQ(ended.output, "");
        EXPECT_THAT(ended.errors, testing::StartsWith("kivclaim: cannot use the recording '" + recording + "': "));
        EXPECT_THAT(ended.errors, HasSubstr(reason));
        EXPECT_EQ(std::count(ended.errors.begin(), ended.errors.end(), '\n'), 1);
        EXPECT_EQ(ended.status, 2);
        EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
    }

    tests::TemporaryFolder root;
    tests::TemporaryFolder recordings;
    tests::TemporaryFolder temporary;
};

TEST_F(BadRecordingFile, TruncatedAnywhereIsRefused)
{
    const std::string whole = contentOf(file());
    for (std::size_t length = 0; length < whole.size(); length += 97) {
        recordings.addFile("cut.tar.zst", whole.substr(0, length));
        expectRefused(recordings.path() + "/cut.tar.zst", "");
    }
}

TEST_F(BadRecordingFile, WithAChangedByteIsRefusedOrTheSame)
{
    const std::string whole = contentOf(file());
    const kivclaim::tools::Recording good = archiveIn(whole);
    std::size_t refused = 0;
    for (std::size_t i = 0; i < whole.size(); ++i) {
        std::string changed = whole;
        changed[i] = static_cast<char>(changed[i] ^ 0x10);
        try {
            const kivclaim::tools::Recording read = archiveIn(changed);
            ASSERT_EQ(read.files.size(), good.files.size()) << i;
            for (const auto& [path, content] : good.files) {
                ASSERT_EQ(read.files.at(path).content, content.content) << i;
            }
        } catch (const RecordingError&) {
            ++refused;
        }
    }
    EXPECT_GT(refused, whole.size() * 9 / 10);
}

TEST_F(BadRecordingFile, ThatIsNoFileIsRefused)
{
    ASSERT_EQ(mkfifo((recordings.path() + "/fifo").c_str(), 0600), 0);
    expectRefused(recordings.path() + "/fifo", "it is neither a file nor a directory");
}

TEST_F(BadRecordingFile, ADirectoryThatWasAlteredIsRefused)
{
    const std::string place = directory() + "/sys/class/added";
    std::ofstream(place) << "x";
    expectRefused(directory(), "it holds 'sys/class/added', which its manifest does not name");
    std::filesystem::remove(place);
    const std::string release = directory() + "/sys/class/block/sda/size";
    const std::string size = contentOf(release);
    std::ofstream(release) << "1" + size;
    expectRefused(directory(), "size' in it was altered; record anew, or remove its manifest to take it as it is");
    std::ofstream(release) << size;
    EXPECT_EQ(run({"--sysroot", directory(), "list"}).status, 0);
    std::filesystem::remove(release);
    expectRefused(directory(), "size' is missing in it");
    ASSERT_EQ(mkfifo(std::filesystem::path(release).c_str(), 0600), 0);
    expectRefused(directory(), "size' in it is neither file, link nor directory");
    std::filesystem::remove(release);
    std::filesystem::create_symlink("/etc/hostname", release);
    expectRefused(directory(), "size' in it was altered");
}

TEST_F(BadRecordingFile, ADirectoryWithoutItsManifestIsTakenAsItIs)
{
    std::filesystem::remove(directory() + "/kivclaim/manifest.json");
    std::ofstream(directory() + "/sys/class/block/sda/size") << "16\n";
    EXPECT_THAT(run({"--sysroot", directory(), "list", "-n", "-o", "SIZE"}).output, testing::HasSubstr("8K\n"));
}
