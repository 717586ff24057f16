// A process that sees a directory in the place of another: every answer about paths is as if it were mounted there.
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

using testing::AnyOf;
using testing::ElementsAre;
using tests::Ended;
using tests::Process;

namespace {

using Words = std::vector<std::string>;

class SeenPaths : public testing::Test {
protected:
    SeenPaths() : work(fs::canonical(machine.path())), place(work + "/place")
    {
        fs::create_directories(place);
        fs::create_directories(work + "/place-too");
        machine.addFile("beside", "beside");
        machine.addFile("place/hidden", "of the machine");
        machine.addFile("place/text", "of the machine");
        machine.addFile("place-too/text", "neighbour");
        fs::create_symlink("place", work + "/link");
        fs::create_directories(shown.path() + "/sub");
        shown.addFile("text", "shown");
        shown.addFile("sub/deep", "deep");
        shown.addScript("tool", "read -r line <" + place + "/text\nprintf '%s ' \"$line\"\nexit 3\n");
        fs::create_symlink("text", shown.path() + "/to-text");
        fs::create_symlink("../beside", shown.path() + "/outwards");
        fs::create_symlink(place + "/sub", shown.path() + "/absolute");
        fs::create_symlink("loop", shown.path() + "/loop");
    }

    static Words linesOf(const Ended& ended)
    {
        EXPECT_EQ(ended.status, 0) << ended.errors;
        std::istringstream stream(ended.output);
        Words lines;
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    Words answers(const Words& questions) const
    {
        return linesOf(Process(KIVCLAIM_PATH_PROBE, questions).sees(shown.path(), place).run());
    }

    std::string answer(const std::string& question, const std::string& path) const
    {
        const Words lines = answers({question, path});
        return lines.size() == 1 ? lines[0] : "";
    }

    tests::TemporaryFolder machine;
    tests::TemporaryFolder shown;
    const std::string work;
    const std::string place;
};

}  // namespace

TEST_F(SeenPaths, AFileIsThatOfTheShownDirectory)
{
    for (const char* const question : {"open", "openat", "stream"}) {
        EXPECT_EQ(answer(question, place + "/text"), "shown") << question;
        EXPECT_EQ(answer(question, place + "/sub/deep"), "deep") << question;
        EXPECT_EQ(answer(question, place + "//.//sub/./deep"), "deep") << question;
    }
    EXPECT_EQ(answer("stat", place + "/text"), "file");
    EXPECT_EQ(answer("realpath", place + "//sub/deep"), place + "/sub/deep");
    EXPECT_EQ(answer("errno-after", place + "/text"), "EXDEV");
}

TEST_F(SeenPaths, TheDirectoryIsReplacedAsAWhole)
{
    EXPECT_EQ(answer("list", place), ". .. absolute loop outwards sub text to-text tool");
    EXPECT_EQ(answer("list", place + "/"), ". .. absolute loop outwards sub text to-text tool");
    EXPECT_EQ(answer("stat", place), "directory");
    for (const char* const question : {"open", "openat", "stat", "lstat", "may-run", "realpath", "list", "chdir"}) {
        EXPECT_EQ(answer(question, place + "/hidden"), "ENOENT") << question;
        EXPECT_EQ(answer(question, place + "/none"), "ENOENT") << question;
    }
}

TEST_F(SeenPaths, NeighboursStayAsTheyAre)
{
    EXPECT_EQ(answer("open", work + "/beside"), "beside");
    EXPECT_EQ(answer("open", work + "/place-too/text"), "neighbour");
    EXPECT_EQ(answer("list", work), ". .. beside link place place-too");
}

TEST_F(SeenPaths, TwoDotsLeadToTheParentThatIsSeen)
{
    EXPECT_EQ(answer("open", place + "/../beside"), "beside");
    EXPECT_EQ(answer("open", place + "/sub/../../beside"), "beside");
    EXPECT_EQ(answer("open", place + "/sub/../text"), "shown");
    EXPECT_EQ(answer("open", work + "/place-too/../place/text"), "shown");
    EXPECT_EQ(answer("open", place + "/none/../text"), "ENOENT");
    EXPECT_EQ(answer("open", place + "/text/../text"), "ENOTDIR");
    EXPECT_EQ(answer("open", work + "/beside/../place/text"), "ENOTDIR");
    EXPECT_EQ(answer("open", place + "/text/."), "ENOTDIR");
    EXPECT_EQ(answer("open", place + "/text/"), "ENOTDIR");
}

TEST_F(SeenPaths, RelativePathsBeginWhereTheProcessSeesItself)
{
    EXPECT_THAT(answers({"chdir", work, "open", "place/text", "open", "./place/../beside"}),
                ElementsAre("done", "shown", "beside"));
    EXPECT_THAT(answers({"chdir", place, "getcwd", "", "open", "text", "open", "../beside", "open", "hidden"}),
                ElementsAre("done", place, "shown", "beside", "ENOENT"));
    EXPECT_THAT(answers({"chdir", place + "/sub", "getcwd", "", "open", "../text", "open", "../../beside", "realpath",
                         "..", "chdir", "../..", "getcwd", ""}),
                ElementsAre("done", place + "/sub", "shown", "beside", place, "done", work));
}

TEST_F(SeenPaths, LinksLeadInsideAndOut)
{
    EXPECT_EQ(answer("open", work + "/link/text"), "shown");
    EXPECT_EQ(answer("open", place + "/to-text"), "shown");
    EXPECT_EQ(answer("open", place + "/outwards"), "beside");
    EXPECT_EQ(answer("open", place + "/absolute/deep"), "deep");
    EXPECT_EQ(answer("open", place + "/absolute/../text"), "shown");
    EXPECT_EQ(answer("realpath", work + "/link/absolute"), place + "/sub");
    EXPECT_EQ(answer("open", place + "/loop"), "ELOOP");
    EXPECT_EQ(answer("open", place + "/loop/text"), "ELOOP");
    EXPECT_EQ(answer("open-no-link", place + "/to-text"), "ELOOP");
    EXPECT_EQ(answer("lstat", place + "/to-text"), "link");
    EXPECT_EQ(answer("readlink", place + "/to-text"), "text");
    EXPECT_EQ(answer("readlink", place + "/text"), "EINVAL");
}

// As on every Debian since its release 12, where /sbin is a link.
TEST_F(SeenPaths, TheSystemsToolsAreReachedByBothNamesOfTheirDirectory)
{
    const Words questions = {"open", "/sbin/text", "open", "/usr/sbin/text", "open", "/usr/bin/../sbin/text"};
    EXPECT_THAT(linesOf(Process(KIVCLAIM_PATH_PROBE, questions).sees(shown.path(), "/usr/sbin").run()),
                ElementsAre("shown", "shown", "shown"));
}

TEST_F(SeenPaths, ProgramsAreRunAndSeeTheSame)
{
    for (const char* const question : {"execv", "execvp", "spawn", "spawnp"}) {
        EXPECT_EQ(answer(question, place + "/tool"), "shown status 3") << question;
    }
    EXPECT_EQ(answer("execv", place + "/text"), "EACCES status 127");
    EXPECT_EQ(answer("execvp", place + "/hidden"), "ENOENT status 127");
    EXPECT_EQ(answer("spawn", place + "/text"), "EACCES");
    EXPECT_EQ(answer("spawnp", place + "/hidden"), "ENOENT");
}

TEST_F(SeenPaths, ProgramsAreSearchedThroughTheShownDirectory)
{
    fs::permissions(place + "/hidden", fs::perms::owner_all);
    Process process(KIVCLAIM_PATH_PROBE, {"execvp", "tool", "spawnp", "tool", "execvp", "text", "spawnp", "text",
                                          "execvp", "hidden", "spawnp", "hidden"});
    process.sees(shown.path(), place).environment("PATH", "/none:" + place + "/sub/..:/usr/bin");
    EXPECT_THAT(linesOf(process.run()), ElementsAre("shown status 3", "shown status 3", "EACCES status 127", "EACCES",
                                                    "ENOENT status 127", "ENOENT"));
}

TEST_F(SeenPaths, AProgramFindsItselfWhereItIsSeen)
{
    fs::copy_file(KIVCLAIM_PATH_PROBE, shown.path() + "/probe");
    const std::string script = "cd " + place + "/sub && exec ../probe readlink /proc/self/exe readlink /proc/self/cwd";
    EXPECT_EQ(Process("sh", {"-c", script}).sees(shown.path(), place).run().output,
              place + "/probe\n" + place + "/sub\n");
}

TEST_F(SeenPaths, WhatIsMadeOrRemovedIsInTheShownDirectoryOnly)
{
    EXPECT_THAT(answers({"create", place + "/new", "create", place + "/new", "create", place + "/none/new"}),
                ElementsAre("100640", "EEXIST", "ENOENT"));
    EXPECT_TRUE(fs::exists(shown.path() + "/new"));
    fs::create_symlink("by-link", shown.path() + "/dangling");
    EXPECT_EQ(answer("create", place + "/dangling"), "EEXIST");
    EXPECT_FALSE(fs::exists(shown.path() + "/by-link"));
    EXPECT_FALSE(fs::exists(place + "/new"));
    EXPECT_THAT(answers({"unlink", place + "/text", "unlink", place + "/hidden", "mkdir", place + "/folder/", "rmdir",
                         place + "/sub"}),
                ElementsAre("done", "ENOENT", "done", "ENOTEMPTY"));
    EXPECT_FALSE(fs::exists(shown.path() + "/text"));
    EXPECT_TRUE(fs::exists(place + "/text"));
    EXPECT_TRUE(fs::exists(place + "/hidden"));
    EXPECT_FALSE(fs::exists(place + "/folder"));
}

TEST_F(SeenPaths, AShellAndItsToolsSeeTheSame)
{
    const std::string script = "cd " + place +
                               "\npwd\ncat text sub/deep; echo\n[ -e hidden ] || echo none\nls -d t*\n"
                               "./tool >>made; echo $?\nmv $PWD/made $PWD/moved; cat " +
                               place + "/moved";
    EXPECT_EQ(Process("sh", {"-c", script}).sees(shown.path(), place).run().output,
              place + "\nshowndeep\nnone\ntext\nto-text\ntool\n3\nshown ");
    EXPECT_EQ(shown.contentOf("moved"), "shown ");
}

TEST_F(SeenPaths, SeveralDirectoriesMayBeReplacedAndOneInsideAnother)
{
    tests::TemporaryFolder inner;
    inner.addFile("deep", "inner");
    Process process(KIVCLAIM_PATH_PROBE, {"open", place + "/sub/deep", "open", place + "/sub/../text", "open",
                                          work + "/place-too/deep", "open", place + "/absolute/deep"});
    process.sees(shown.path(), place).sees(inner.path(), place + "/sub").sees(inner.path(), work + "/place-too");
    EXPECT_THAT(linesOf(process.run()), ElementsAre("inner", "shown", "inner", "inner"));
}

TEST_F(SeenPaths, AnotherPreloadedLibraryIsStillPreloaded)
{
    const std::string script = "printf %s \"$LD_PRELOAD\"; cat " + place + "/text";
    Process process("sh", {"-c", script});
    process.environment("LD_PRELOAD", KIVCLAIM_INSTANT_SLEEP).sees(shown.path(), place);
    EXPECT_THAT(process.run().output, testing::EndsWith(":" KIVCLAIM_INSTANT_SLEEP "shown"));
}

// Where the kernel refuses the namespace, the test says so, and still compares with what a mount is known to give.
TEST_F(SeenPaths, AMountNamespaceGivesTheSameAnswersWhereTheKernelAllowsOne)
{
    Words questions;
    for (const char* const question : {"open", "openat", "stream", "open-no-link", "stat", "lstat", "may-run", "list",
                                       "readlink", "realpath", "execv", "spawn"}) {
        for (const char* const path :
             {"", "/", "/text", "/text/", "/text/..", "/tool", "/hidden", "/none/../text", "/sub/../text", "/../beside",
              "/../link/sub/deep", "/to-text", "/outwards", "/absolute", "/absolute/../text", "/loop", "/loop/x"}) {
            questions.insert(questions.end(), {question, place + path});
        }
    }
    questions.insert(questions.end(), {"chdir", place + "/sub", "getcwd", "", "open", "../text", "open", "../../beside",
                                       "realpath", "..", "readlink", "/proc/self/cwd"});
    const Words preloaded = answers(questions);
    ASSERT_EQ(preloaded.size(), questions.size() / 2);
    EXPECT_EQ(Words(preloaded.end() - 6, preloaded.end()),
              (Words{"done", place + "/sub", "shown", "beside", place, place + "/sub"}));

    Words arguments = {shown.path(), place, KIVCLAIM_PATH_PROBE};
    arguments.insert(arguments.end(), questions.begin(), questions.end());
    const Ended mounted = Process(KIVCLAIM_IN_MOUNT_NAMESPACE, arguments).run();
    if (mounted.status == 125) {
        EXPECT_THAT(mounted.errors, AnyOf("unshare: Operation not permitted\n", "mount: Operation not permitted\n",
                                          "mount: Permission denied\n", "unshare: No space left on device\n"));
        RecordProperty("mount_namespace", "refused");
        std::cout << "Not compared with a mount namespace, which the kernel refuses: " << mounted.errors;
        return;
    }
    RecordProperty("mount_namespace", "compared");
    std::cout << "Compared with a mount namespace: " << preloaded.size() << " answers\n";
    const Words expected = linesOf(mounted);
    ASSERT_EQ(expected.size(), preloaded.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(preloaded[i], expected[i]) << questions[2 * i] << " " << questions[2 * i + 1];
    }
}
