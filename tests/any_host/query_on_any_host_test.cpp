// The claim query on the bundled host and on one that shares no code with it, as processes. The tool is a script that
// only the asking process sees.
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;
using tests::Ended;
using tests::Process;

namespace {

using Lines = std::vector<std::string>;

struct HostKind {
    const char* name;
    const char* program;
};

void PrintTo(const HostKind& kind, std::ostream* stream)
{
    *stream << kind.name;
}

class QueryOnHost : public testing::TestWithParam<HostKind> {
protected:
    // The script writes a line for each run.
    void lvdisplay(const std::string& body) const
    {
        tools.addScript("lvdisplay", "echo run >> " + work.path() + "/runs\n" + body);
    }

    Lines ask(const std::vector<std::string>& arguments) const
    {
        Process process(GetParam().program, arguments);
        const Ended ended = process.sees(tools.path(), "/usr/sbin").run();
        EXPECT_EQ(ended.status, 0) << ended.errors;
        std::istringstream stream(ended.output);
        Lines lines;
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    bool isBundled() const { return GetParam().name == std::string("Bundled"); }

    tests::TemporaryFolder tools;
    tests::TemporaryFolder work;
};

constexpr const char* twoVolumes =
    "printf '  LV Path /dev/vg00/lvol1\\n  LV Name lvol1\\n  VG Name vg00\\n  LV Name home\\n  VG Name data\\n'\n";

std::string nameOf(const testing::TestParamInfo<HostKind>& info)
{
    return info.param.name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Hosts, QueryOnHost,
                         testing::Values(HostKind{"Bundled", QUERY_ON_BUNDLED_HOST},
                                         HostKind{"Second", QUERY_ON_SECOND_HOST}),
                         nameOf);

TEST_P(QueryOnHost, AnswersAreBasedOnTheToolsOutput)
{
    lvdisplay(twoVolumes);
    EXPECT_THAT(ask({"/dev/mapper/vg00-lvol1", "/dev/mapper/mpatha-part2", "/dev/sdc12"}),
                ElementsAre("/dev/mapper/vg00-lvol1: 0 none list-read 0 []",
                            "/dev/mapper/mpatha-part2: 16 device-mapper list-read partition 2 [/dev/mapper/mpatha]",
                            "/dev/sdc12: 2 native not-needed partition 12 [/dev/sdc]", "2 volumes; ; "));
}

TEST_P(QueryOnHost, TenThousandPathsAreAnsweredByOneRun)
{
    lvdisplay("");
    Lines answers = ask({"--nodes", "10000"});
    ASSERT_THAT(answers, SizeIs(10001));
    answers.pop_back();
    EXPECT_THAT(answers, Each(AllOf(StartsWith("/dev/mapper/node"), HasSubstr(": 16 device-mapper list-read 0 ["))));
    EXPECT_EQ(work.contentOf("runs"), "run\n");
}

TEST_P(QueryOnHost, AFailedToolIsReportedWithItsOutput)
{
    lvdisplay(std::string(twoVolumes) + "echo 'WARNING: a device is missing' >&2\nexit 5\n");
    const Lines lines = ask({"/dev/mapper/mpatha", "/dev/mapper/mpathb"});
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_EQ(lines[0], "/dev/mapper/mpatha: 16 device-mapper list-failed 0 [/dev/mapper/mpatha]");
    EXPECT_EQ(lines[1], "/dev/mapper/mpathb: 16 device-mapper list-failed 0 [/dev/mapper/mpathb]");
    EXPECT_THAT(lines[2], StartsWith("2 volumes; /sbin/lvdisplay exited with status 5 after printing 2 volumes; "));
    EXPECT_THAT(lines[2], HasSubstr(isBundled() ? "WARNING: a device is missing" : "/sbin/lvdisplay has failed"));
    EXPECT_EQ(work.contentOf("runs"), "run\n");
}

TEST_P(QueryOnHost, AToolThatASignalEndedIsReportedWithTheSignal)
{
    lvdisplay("kill -9 $$\n");
    EXPECT_THAT(ask({"/dev/mapper/mpatha"}).back(), StartsWith("0 volumes; /sbin/lvdisplay was ended by signal 9; "));
}

TEST_P(QueryOnHost, AMissingToolIsReportedAsOneThatCouldNotBeRun)
{
    const Lines lines = ask({"/dev/mapper/mpatha"});
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0], "/dev/mapper/mpatha: 16 device-mapper list-failed 0 [/dev/mapper/mpatha]");
    EXPECT_THAT(lines[1], AllOf(StartsWith("0 volumes; /sbin/lvdisplay could not be run; "),
                                HasSubstr("No such file or directory")));
}

TEST_P(QueryOnHost, AToolThatHangsIsEndedAtTheDeadlineAndGivesNoAnswer)
{
    lvdisplay("exec sleep 100\n");
    EXPECT_THAT(ask({"--deadline", "2", "/dev/sda", "/dev/mapper/mpatha", "/dev/sdb"}),
                ElementsAre("/dev/sda: 2 native not-needed 0 [/dev/sda]", "/dev/mapper/mpatha: 0 none deadline 0 []",
                            "/dev/sdb: 0 none deadline 0 []", "0 volumes; ; "));
}
