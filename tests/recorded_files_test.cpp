// Files of a recorded machine: what is told of them, and that nothing outside of the root is one.
#include "machine/recorded_files.h"

#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>

using kivclaim::machine::ReadError;
using kivclaim::machine::RecordedFiles;
using kivclaim::machine::Root;

namespace {

class RecordedFilesTest : public testing::Test {
protected:
    std::string errorOf(const std::string& path, std::size_t longest = 100) const
    {
        try {
            return "content " + files.content(path, longest).value_or("missing");
        } catch (const ReadError& error) {
            return error.what();
        }
    }
    std::string about(const std::string& path, const std::string& reason) const
    {
        return "cannot read '" + folder.path() + "/" + path + "': " + reason;
    }

    tests::TemporaryFolder folder;
    tests::TemporaryFolder outside;
    tests::SysfsDirectory directory{folder.path()};
    RecordedFiles files{Root::recorded(folder.path())};
};

}  // namespace

TEST_F(RecordedFilesTest, TheWholeContentIsReadByteForByte)
{
    const std::string text(std::string("a\0b\n", 4) + std::string(9000, 'x'));
    directory.file("some/file", text);
    EXPECT_EQ(files.content("some/file", 10000), text);
    EXPECT_EQ(files.content("/some/file", text.size()), text);
    EXPECT_EQ(errorOf("some/file", text.size() - 1), about("some/file", "it is longer than 9003 bytes"));
}

TEST_F(RecordedFilesTest, AFileThatIsNotThereIsNone)
{
    directory.file("file", "").link("/some/link", "/nowhere");
    EXPECT_FALSE(files.content("none", 100));
    EXPECT_FALSE(files.content("file/none", 100));
    EXPECT_FALSE(files.content("some/link", 100));
}

TEST_F(RecordedFilesTest, AnythingButAFileIsAnErrorThatNamesIt)
{
    directory.link("/some/circle", "circle");
    ASSERT_EQ(mkfifo((folder.path() + "/fifo").c_str(), 0600), 0);
    EXPECT_EQ(errorOf("some"), about("some", "it is no regular file"));
    EXPECT_EQ(errorOf("fifo"), about("fifo", "it is no regular file"));
    EXPECT_EQ(errorOf("some/circle"), about("some/circle", "Too many levels of symbolic links"));
}

TEST_F(RecordedFilesTest, LinksStayWithinTheRoot)
{
    outside.addFile("secret", "outside");
    directory.file("inside", "inside").link("/some/absolute", "/inside");
    directory.link("/some/out", outside.path() + "/secret")
        .link("/some/up", "../../../.." + outside.path() + "/secret");
    EXPECT_EQ(files.content("some/absolute", 100), "inside");
    EXPECT_FALSE(files.content("some/out", 100));
    EXPECT_FALSE(files.content("some/up", 100));
    EXPECT_FALSE(files.content("../../.." + outside.path() + "/secret", 100));
}

TEST_F(RecordedFilesTest, AFileMayBeExecutedWhenItsModeSaysSo)
{
    directory.file("sbin/tool", "x");
    EXPECT_FALSE(files.isExecutable("/sbin/tool"));
    ASSERT_EQ(chmod((folder.path() + "/sbin/tool").c_str(), 0755), 0);
    EXPECT_TRUE(files.isExecutable("/sbin/tool"));
    EXPECT_FALSE(files.isExecutable("/sbin/none"));
}
