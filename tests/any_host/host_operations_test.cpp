// Which host framework answers, in every arrangement in which one may expect its own and get another: the query must
// tell the truth in each.
#include "claim/kiv_host_operations.h"
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

using testing::SizeIs;
using tests::Ended;
using tests::Process;

namespace {

using Lines = std::vector<std::string>;

// The report's lines, with the bare names of the files.
Lines report(const std::string& program, const Lines& arguments = {})
{
    // Two builds of the library in one process are what some reports are about.
    const Ended ended = Process(program, arguments).environment("ASAN_OPTIONS", "detect_odr_violation=0").run();
    EXPECT_EQ(ended.status, 0) << ended.errors;
    std::istringstream stream(ended.output);
    Lines lines;
    for (std::string name, file; stream >> name >> file;) {
        lines.push_back(name + " " + std::filesystem::path(file).filename().string());
    }
    return lines;
}

Lines allFrom(const std::string& file)
{
    return {"CFiTraceLog::trace " + file,      "CFiExecPipePosix::CFiExecPipePosix " + file,
            "CFiExecPipeBase::Exec " + file,   "CFiStringTool::find " + file,
            "CFiStringTool::trim " + file,     "CFiStringTool::tokenize " + file,
            "CFiStringTool::str2tstr " + file, "CFiStringTool::tstr2str " + file};
}

const Lines allBundled = allFrom("libztfi_pdk.so.4.4");

}  // namespace

TEST(HostOperations, TheBundledFrameworkIsNamed)
{
    EXPECT_EQ(report(REPORTS "bundled"), allBundled);
}

TEST(HostOperations, AFrameworkAmongTheProgramsObjectsWins)
{
    EXPECT_EQ(report(REPORTS "objects"), allFrom("report_on_objects"));
}

TEST(HostOperations, AnArchiveBeforeTheLibraryIsTakenOnlyForWhatTheProgramItselfUses)
{
    EXPECT_EQ(report(REPORTS "archive_before"), allBundled);
}

TEST(HostOperations, AWholeArchiveWins)
{
    EXPECT_EQ(report(REPORTS "whole_archive"), allFrom("report_on_whole_archive"));
}

TEST(HostOperations, AFrameworkThatAVersionScriptHidesIsNotTheOneThatAnswers)
{
    EXPECT_EQ(report(REPORTS "hidden_objects"), allBundled);
}

TEST(HostOperations, AFrameworkLibraryBeforeTheClaimLibraryWins)
{
    EXPECT_EQ(report(REPORTS "library_before"), allFrom("libsecond_host.so"));
}

TEST(HostOperations, AnOpenedLibraryTakesThemFromTheProcessThatExportsThem)
{
    EXPECT_EQ(report(FRAMEWORK_REPORT, {ORDINARY_PLUGIN}), allFrom("framework_report"));
    EXPECT_EQ(report(FRAMEWORK_REPORT, {PLUGIN_WITHOUT_HOST}), allFrom("framework_report"));
}

#ifndef SANITIZED  // a sanitizer's runtime refuses such libraries
TEST(HostOperations, DeepBindingTakesThemFromTheLibrarysOwnHost)
{
    EXPECT_EQ(report(FRAMEWORK_REPORT, {"--deepbind", ORDINARY_PLUGIN}), allBundled);
}
#endif

TEST(HostOperations, ASecondLibraryGetsWhatAnEarlierOneMadeGlobal)
{
    EXPECT_EQ(report(PLAIN_REPORT, {PLUGIN_ON_SECOND_HOST}), allFrom("libsecond_host.so"));
    EXPECT_EQ(report(PLAIN_REPORT, {"--global", ORDINARY_PLUGIN, PLUGIN_ON_SECOND_HOST}), allBundled);
}

TEST(HostOperations, ThereAreEightAndAHigherIndexSetsNothing)
{
    const char* name = "untouched";
    const char* file = "untouched";
    EXPECT_EQ(kivclaim_host_operation(8, &name, &file), 0);
    EXPECT_STREQ(name, "untouched");
    EXPECT_STREQ(file, "untouched");
    EXPECT_EQ(kivclaim_host_operation(7, &name, &file), 1);
    EXPECT_STREQ(name, "CFiStringTool::tstr2str");
    EXPECT_THAT(kivclaim::hostOperations(), SizeIs(8));
}
