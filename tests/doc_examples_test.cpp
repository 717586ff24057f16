// The examples on the pages are compiled and run, and print what the pages show.
//
// A fenced block begins with its kind, and goes on with a file name where it has one:
//
//   console             a session in a shell: lines after "$ " (and "> ") are typed, the others are the output
//   cpp                 compiles without a warning; with a main function, it also runs and prints nothing
//   KIND FOLDER/FILE    is that file of the tree, to the letter
//   KIND FILE           is put into the sessions' folder under that name, for them to use
//   KIND not-run        shown only: needs the network, root or a machine of its own
//
// All sessions of a page run in one shell, on a machine of their own: an installed kivclaim, a few devices, and tools
// that report one logical volume and one disk with two paths.
#include "tests/mock_machine.h"
#include "tests/process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using tests::Ended;
using tests::Process;

namespace {

namespace fs = std::filesystem;

const std::string sourceFolder = KIVCLAIM_SOURCE;

struct Block {
    std::string kind;
    std::string file;
    std::string text;
    int line = 0;
};

std::vector<Block> blocksOf(const std::string& page)
{
    std::ifstream stream(sourceFolder + "/" + page);
    EXPECT_TRUE(stream) << page;
    std::vector<Block> blocks;
    bool isInside = false;
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        ++number;
        if (line.compare(0, 3, "```") == 0) {
            isInside = !isInside;
            if (isInside) {
                blocks.emplace_back();
                blocks.back().line = number;
                std::istringstream(line.substr(3)) >> blocks.back().kind >> blocks.back().file;
            }
        } else if (isInside) {
            blocks.back().text += line + "\n";
        }
    }
    EXPECT_FALSE(isInside) << page << " ends inside a block";
    return blocks;
}

std::string contentOf(const std::string& path)
{
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

// A script that shows and runs what is typed, as a terminal does.
std::string scriptOf(const std::string& session)
{
    std::istringstream stream(session);
    std::string script;
    std::string shown;
    std::string command;
    const auto flush = [&] {
        if (!command.empty()) {
            script += "cat <<'shown to the reader'\n" + shown + "shown to the reader\n" + command;
        }
        shown.clear();
        command.clear();
    };
    for (std::string line; std::getline(stream, line);) {
        if (line.compare(0, 2, "$ ") == 0) {
            flush();
        }
        if (line.compare(0, 2, "$ ") == 0 || line.compare(0, 2, "> ") == 0) {
            shown += line + "\n";
            command += line.substr(2) + "\n";
        }
    }
    flush();
    return script;
}

// kivclaim as an administrator installs it.
std::string installInto(const std::string& prefix)
{
    const Ended ended = Process(KIVCLAIM_CMAKE, {"--install", KIVCLAIM_BUILD, "--prefix", prefix}).run();
    EXPECT_EQ(ended.status, 0) << ended.errors;
    return prefix;
}

class DocExamples : public testing::TestWithParam<const char*> {
protected:
    DocExamples()
    {
        tools.addScript("lvdisplay",
                        "echo '  LV Path /dev/vg00/lvol1'\necho '  LV Name lvol1'\necho '  VG Name vg00'\n");
        tools.addScript("ztkivadm",
                        "case $1 in\n"
                        "getkivnode) printf 'NAME STATE\\n====\\nkiv0_1 ENABLED\\n' ;;\n"
                        "getsubpaths) printf 'NAME STATE TYPE\\n====\\nsdc ENABLED PRIMARY\\nsdd ENABLED(A) "
                        "PRIMARY\\n' ;;\n"
                        "esac\n");
        tools.addScript("ztdisk", "");
        machine.disk("sda").partition("sda", "sda1", 1).disk("sdc").disk("sdd");
        machine.mapped("dm-0", "mpatha", "mpath-36001", {"sdc", "sdd"});
        machine.mapped("dm-1", "mpatha-part1", "part1-mpath-36001", {"dm-0"});
        machine.mapped("dm-2", "vg00-lvol1", "LVM-AbCd", {"sda1"});
        addDevicesOf(GetParam());
        fs::create_symlink(sourceFolder + "/examples", work.path() + "/examples");
    }

    // What a page asks about besides; otherwise the command would say that it is not there.
    void addDevicesOf(const std::string& page)
    {
        machine.disk("zram0");
        if (page == "README.md") {
            machine.disk("emcpowera").disk("emcpowerb").partition("emcpowerb", "emcpowerb15", 15);
            machine.disk("nvme0n1").partition("nvme0n1", "nvme0n1p12", 12).partition("sdc", "sdc1", 1);
        }
    }

    Ended run(const std::string& script)
    {
        const std::string library = prefix + "/" KIVCLAIM_LIBDIR;
        Process process = machine.process("/bin/sh", {"-c", "exec 2>&1\ncd " + work.path() + "\n" + script});
        return process.sees(tools.path(), "/usr/sbin")
            .environment("LC_ALL", "C")
            .environment("PATH", prefix + "/bin:" + std::getenv("PATH"))
            .environment("LD_LIBRARY_PATH", library)
            .environment("PKG_CONFIG_PATH", library + "/pkgconfig")
            .environment("CMAKE_PREFIX_PATH", prefix)
            .run();
    }

    void keepFile(const Block& block)
    {
        if (block.file.find('/') != std::string::npos) {
            EXPECT_EQ(block.text, contentOf(sourceFolder + "/" + block.file)) << "the file in the tree differs";
            return;
        }
        const std::string mention = block.kind == "cmake" ? "cmake" : block.file;
        EXPECT_NE(sessions.find(mention), std::string::npos) << "no session uses the file";
        work.addFile(block.file, block.text);
    }

    void compile(const Block& block)
    {
        const bool isProgram = block.text.find("int main(") != std::string::npos;
        work.addFile("block.cpp", block.text);
        const Ended ended =
            run("c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror block.cpp " +
                std::string(isProgram
                                ? "-o block $(pkg-config --cflags --libs kivclaim ztfi_pdk kivclaim_kernel) && ./block"
                                : "-fsyntax-only $(pkg-config --cflags kivclaim)"));
        EXPECT_EQ(ended.output, "");
        EXPECT_EQ(ended.status, 0);
    }

    void expectKnownKind(const Block& block)
    {
        EXPECT_FALSE(block.kind.empty()) << "the block says nothing about its kind";
        EXPECT_TRUE(!block.file.empty() || block.kind == "cpp" || block.kind == "console")
            << "such a block names a file or is marked not-run";
    }

    tests::MockMachine machine;
    tests::TemporaryFolder tools;
    tests::TemporaryFolder work;
    tests::TemporaryFolder installation;
    const std::string prefix = installInto(installation.path() + "/usr");
    std::string sessions;
};

// The pages that have blocks.
constexpr const char* pages[] = {"README.md", "docs/contract.md", "docs/host-guide.md", "docs/fleets.md"};

std::string nameOf(const testing::TestParamInfo<const char*>& page)
{
    std::string name = fs::path(page.param).stem();
    name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
    return name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Pages, DocExamples, testing::ValuesIn(pages), nameOf);

TEST_P(DocExamples, CompileRunAndPrintWhatThePageShows)
{
    std::string script;
    for (const Block& block : blocksOf(GetParam())) {
        if (block.kind == "console" && block.file.empty()) {
            sessions += block.text;
            script += scriptOf(block.text);
        }
    }
    for (const Block& block : blocksOf(GetParam())) {
        SCOPED_TRACE(GetParam() + (":" + std::to_string(block.line)));
        expectKnownKind(block);
        if (block.file == "not-run") {
            continue;
        }
        if (!block.file.empty()) {
            keepFile(block);
        } else if (block.kind == "cpp") {
            compile(block);
        }
    }
    EXPECT_EQ(run(script).output, sessions);
}

TEST(DocExamplesOfThePages, LeaveNoPageOutAndFewAreNotRun)
{
    std::vector<std::string> pagesWithBlocks;
    std::size_t notRun = 0;
    for (const char* const folder : {"", "docs/"}) {
        for (const auto& file : fs::directory_iterator(sourceFolder + "/" + folder)) {
            const std::string page = folder + file.path().filename().string();
            const std::vector<Block> blocks = file.path().extension() == ".md" ? blocksOf(page) : std::vector<Block>();
            notRun += static_cast<std::size_t>(std::count_if(
                blocks.begin(), blocks.end(), [](const Block& block) { return block.file == "not-run"; }));
            const bool isTested = std::find(std::begin(pages), std::end(pages), page) != std::end(pages);
            EXPECT_TRUE(blocks.empty() || isTested) << page << " has blocks: name it in `pages`";
        }
    }
    EXPECT_LE(notRun, 7U);
}
