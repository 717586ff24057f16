// The command as a process: what it prints, where, and how it ends.
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using tests::Ended;
using tests::Process;

namespace {

Ended kivclaim(std::vector<std::string> arguments, const std::string& input = "")
{
    return Process(KIVCLAIM_COMMAND, std::move(arguments)).reads(input).run();
}

// Nothing that is written may drive a terminal: only line feeds among the control bytes.
bool isHarmless(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte == '\n' || (byte >= 0x20 && byte < 0x7F) || byte >= 0xA0;
    });
}

std::string contentOf(const std::string& path)
{
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
}

}  // namespace

TEST(CommandClaim, PrintsLevelStackAndPath)
{
    const Ended ended = kivclaim({"claim", "/dev/emcpowera1"});
    EXPECT_EQ(ended.output, "16 powerpath /dev/emcpowera1\n");
    EXPECT_EQ(ended.errors, "kivclaim: /dev/emcpowera1: no such device; the name alone decides\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(CommandClaim, NamesEveryStack)
{
    EXPECT_EQ(kivclaim({"claim", "/dev/sda1", "/dev/emcpowera", "/dev/mapper/mpatha"}).output,
              "2 native /dev/sda1\n16 powerpath /dev/emcpowera\n16 device-mapper /dev/mapper/mpatha\n");
}

TEST(CommandClaim, EndsWithOneWhenSomePathIsUnclaimed)
{
    const Ended ended = kivclaim({"claim", "/dev/emcpowera", "/dev/null", "/dev/emcpowerb"});
    EXPECT_EQ(ended.output, "16 powerpath /dev/emcpowera\n0 none /dev/null\n16 powerpath /dev/emcpowerb\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(CommandIsPartition, PrintsYesOrNoAndThePath)
{
    const Ended yes = kivclaim({"is-partition", "/dev/emcpowera1"});
    EXPECT_EQ(yes.output, "yes /dev/emcpowera1\n");
    EXPECT_EQ(yes.status, 0);
    const Ended some = kivclaim({"is-partition", "/dev/emcpowera1", "/dev/emcpowera"});
    EXPECT_EQ(some.output, "yes /dev/emcpowera1\nno /dev/emcpowera\n");
    EXPECT_EQ(some.status, 1);
}

TEST(CommandPartition, PrintsThePathOfAPartition)
{
    const Ended ended = kivclaim({"partition", "/dev/emcpowera", "3"});
    EXPECT_EQ(ended.output, "/dev/emcpowera3\n");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(kivclaim({"partition", "/dev/emcpowera", "4294967295"}).output, "/dev/emcpowera-1\n");
    EXPECT_EQ(kivclaim({"partition", "/dev/emcpowera", "0"}).output, "/dev/emcpowera0\n");
}

TEST(CommandPartition, SaysWhenNoModuleClaimsTheDevice)
{
    const Ended ended = kivclaim({"partition", "/dev/null", "3"});
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.errors, "kivclaim: no stack claims /dev/null\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(CommandPartition, RefusesAnInvalidPartitionNumber)
{
    for (const char* const number : {"-1", "4294967296", "1x", "x", "", "1 ", "0x1", "+1", "99999999999999999999"}) {
        const Ended ended = kivclaim({"partition", "/dev/emcpowera", number});
        EXPECT_EQ(ended.output, "") << number;
        EXPECT_EQ(ended.errors, "kivclaim: '" + std::string(number) +
                                    "' is no partition number; give a whole number from 0 to 4294967295\n");
        EXPECT_EQ(ended.status, 2) << number;
    }
}

TEST(CommandWhole, PrintsWholeDeviceAndNumber)
{
    const Ended ended = kivclaim({"whole", "-"}, "/dev/emcpowera\n/dev/emcpowerb15\n");
    EXPECT_EQ(ended.output, "/dev/emcpowera 0\n/dev/emcpowerb 15\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(CommandWhole, SaysWhenNoModuleClaimsAPathAndContinues)
{
    const Ended ended = kivclaim({"whole", "/dev/null", "/dev/emcpowerb15"});
    EXPECT_EQ(ended.output, "/dev/emcpowerb 15\n");
    EXPECT_EQ(ended.errors,
              "kivclaim: no stack claims /dev/null\n"
              "kivclaim: /dev/emcpowerb15: no such device; the name alone decides\n");
    EXPECT_EQ(ended.status, 1);
}

TEST(CommandExplain, ShowsAnswersWinnerAndRecords)
{
    const Ended ended = kivclaim({"explain", "/dev/emcpowera1"});
    EXPECT_THAT(ended.output, StartsWith("/dev/emcpowera1\nModules, in the order in which they are asked:\n"));
    EXPECT_THAT(ended.output, HasSubstr(". CKivPowerPathClaim (powerpath) answers 16\n"));
    EXPECT_THAT(ended.output, HasSubstr("Claimed by powerpath, level 16: the only module that claims it.\n"));
    EXPECT_THAT(ended.output, HasSubstr("Records of the request, each behind its level:\n"
                                        "  6 Entering Function claim [109, kiv_claim_manager.cpp]\n"));
    EXPECT_THAT(ended.output, HasSubstr("  3 INFO: CKivPowerPathClaim::claim - returning CLAIM_SECONDARY\n"));
    EXPECT_THAT(ended.output, EndsWith("  6 Exiting Function claim [109, kiv_claim_manager.cpp]\n"));
    EXPECT_EQ(ended.status, 0);
}

TEST(CommandExplain, SaysThatNoModuleClaimsThePath)
{
    const Ended ended = kivclaim({"explain", "/dev/null"});
    EXPECT_THAT(ended.output, HasSubstr("answers 0, not claimed\nClaimed by none, level 0.\n"));
    EXPECT_EQ(ended.status, 1);
}

TEST(CommandInput, ReadsPathsFromStandardInputAtThePlaceOfTheDash)
{
    const Ended ended = kivclaim({"claim", "/dev/emcpowera", "-", "/dev/emcpowerd"}, "/dev/emcpowerb\n/dev/emcpowerc");
    EXPECT_EQ(ended.output,
              "16 powerpath /dev/emcpowera\n16 powerpath /dev/emcpowerb\n16 powerpath /dev/emcpowerc\n"
              "16 powerpath /dev/emcpowerd\n");
    EXPECT_EQ(ended.status, 0) << "a last line without a line feed counts";
}

TEST(CommandInput, AnswersAMillionLinesInConstantMemory)
{
    constexpr int batches = 1000;
    constexpr int linesInBatch = 1000;
    Process process(KIVCLAIM_COMMAND, {"--no-warn", "whole", "-"});
    process.environment("ASAN_OPTIONS", "quarantine_size_mb=1");
    process.start();
    long peakAfterFirstBatch = 0;
    for (int batch = 0; batch < batches; ++batch) {
        std::string input;
        for (int line = 0; line < linesInBatch; ++line) {
            input += "/dev/emcpowera" + std::to_string(batch * linesInBatch + line) + "\n";
        }
        process.write(input);
        for (int line = 0; line < linesInBatch; ++line) {
            ASSERT_EQ(process.readLine(), "/dev/emcpowera " + std::to_string(batch * linesInBatch + line));
        }
        if (batch == 0) {
            peakAfterFirstBatch = process.peakKilobytes();
        }
    }
    EXPECT_LT(process.peakKilobytes(), peakAfterFirstBatch + 4096);
    EXPECT_EQ(process.finish().status, 0);
}

TEST(CommandInput, AnswersALineBeforeTheNextOneIsWritten)
{
    Process process(KIVCLAIM_COMMAND, {"claim", "-"});
    process.start();
    process.write("/dev/emcpowera\n");
    EXPECT_EQ(process.readLine(), "16 powerpath /dev/emcpowera");
    process.write("/dev/null\n");
    EXPECT_EQ(process.readLine(), "0 none /dev/null");
    EXPECT_EQ(process.finish().status, 1);
}

TEST(CommandInput, RefusesAnEmptyPath)
{
    const Ended argument = kivclaim({"claim", ""});
    EXPECT_EQ(argument.errors, "kivclaim: PATH is empty; give device paths such as /dev/sda\n");
    EXPECT_EQ(argument.status, 2);
    const Ended lines = kivclaim({"--no-warn", "claim", "-"}, "/dev/emcpowera\n\n/dev/emcpowerb\n");
    EXPECT_EQ(lines.output, "16 powerpath /dev/emcpowera\n16 powerpath /dev/emcpowerb\n");
    EXPECT_EQ(lines.errors, "kivclaim: line 2 of standard input is empty; give device paths such as /dev/sda\n");
    EXPECT_EQ(lines.status, 2);
}

TEST(CommandInput, RefusesALineThatCannotBeAPath)
{
    const std::string zero("/dev/emcpowera\0b\n/dev/emcpowerb\n", 32);
    const Ended zeroByte = kivclaim({"claim", "-"}, zero);
    EXPECT_EQ(zeroByte.output, "16 powerpath /dev/emcpowerb\n");
    EXPECT_THAT(zeroByte.errors, HasSubstr("line 1 of standard input contains a zero byte"));
    const Ended overlong = kivclaim({"claim", "-"}, std::string(3000000, 'x') + "\n/dev/emcpowerb\n");
    EXPECT_EQ(overlong.output, "16 powerpath /dev/emcpowerb\n");
    EXPECT_THAT(overlong.errors, HasSubstr("line 1 of standard input is longer than 1048576 bytes"));
    EXPECT_EQ(overlong.status, 2);
}

TEST(CommandInput, AnswersAPathOf64KilobytesWhole)
{
    const std::string path = "/dev/emcpower" + std::string(65536, 'x');
    EXPECT_EQ(kivclaim({"claim", "-"}, path + "\n").output, "16 powerpath " + path + "\n");
    EXPECT_EQ(kivclaim({"claim", path}).output, "16 powerpath " + path + "\n");
}

TEST(CommandInput, SaysWhenStandardInputCannotBeRead)
{
    const Ended ended = Process(KIVCLAIM_COMMAND, {"claim", "-"}).readsFile("/").run();
    EXPECT_EQ(ended.errors,
              "kivclaim: cannot read standard input: Is a directory; '-' takes paths from it, one a line\n");
    EXPECT_EQ(ended.status, 2);
}

TEST(CommandOutput, NothingHostileReachesTheTerminal)
{
    const std::string hostile = "/dev/emcpower\n\x1b[2J\x1b]0;x\x07\r\x9b\xc2\x9b\x7f\xff z";
    for (const char* const command : {"claim", "is-partition", "whole", "explain"}) {
        const Ended ended = kivclaim({command, hostile, "--trace", "6"});
        EXPECT_TRUE(isHarmless(ended.output)) << ended.output;
        EXPECT_TRUE(isHarmless(ended.errors)) << ended.errors;
        EXPECT_THAT(ended.output, HasSubstr("/dev/emcpower\\x0a\\x1b[2J"));
    }
    EXPECT_TRUE(isHarmless(kivclaim({"partition", hostile, "1"}).output));
    for (const std::vector<std::string>& wrong :
         std::vector<std::vector<std::string>>{{"partition", hostile, hostile},
                                               {hostile},
                                               {"claim", "--" + hostile},
                                               {"list", "-o", hostile},
                                               {"--no-warn", "whole", "/dev/null\x1b[2J"},
                                               {"--trace-file", "/none/\x1b[2J", "prefixes"}}) {
        const Ended ended = kivclaim(wrong);
        EXPECT_TRUE(isHarmless(ended.output + ended.errors)) << ended.errors;
        EXPECT_EQ(std::count(ended.errors.begin(), ended.errors.end(), '\n'), 1) << ended.errors;
    }
}

TEST(CommandOutput, AClosedPipeEndsItQuietly)
{
    Process process(KIVCLAIM_COMMAND, {"--no-warn", "claim", "-"});
    process.start();
    process.closeOutput();
    std::string input;
    for (int i = 0; i < 10000; ++i) {
        input += "/dev/emcpowera\n";
    }
    process.writeIgnoringClosedPipe(input);
    const Ended ended = process.finish();
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.signal, SIGPIPE);
}

TEST(CommandOutput, SaysWhenOutputCannotBeWritten)
{
    const Ended ended = Process(KIVCLAIM_COMMAND, {"prefixes"}).writesFile("/dev/full").run();
    EXPECT_EQ(ended.errors,
              "kivclaim: cannot write to standard output: No space left on device; the answers up to here may be "
              "incomplete\n");
    EXPECT_EQ(ended.status, 2);
}

TEST(CommandUsage, SaysInOneLineWhatWasWrongAndWhatToDo)
{
    const auto complaint = [](const std::vector<std::string>& arguments) {
        const Ended ended = kivclaim(arguments);
        EXPECT_EQ(ended.output, "");
        EXPECT_EQ(ended.status, 2);
        EXPECT_EQ(std::count(ended.errors.begin(), ended.errors.end(), '\n'), 1) << ended.errors;
        return ended.errors;
    };
    EXPECT_EQ(complaint({"claim"}),
              "kivclaim: PATH is required; usage: kivclaim claim [OPTIONS] PATH..., see 'kivclaim claim --help'\n");
    EXPECT_THAT(complaint({"frobnicate"}),
                AllOf(HasSubstr("frobnicate"), HasSubstr("the commands are active-path, audit, claim, ")));
    EXPECT_THAT(complaint({"claim", "--frobnicate", "x"}), HasSubstr("--frobnicate"));
    EXPECT_THAT(complaint({"partition", "/dev/emcpowera"}), HasSubstr("N is required"));
    EXPECT_THAT(complaint({"partition", "/dev/emcpowera", "1", "2"}), HasSubstr("usage: kivclaim partition"));
    EXPECT_THAT(complaint({"--trace", "7", "prefixes"}), HasSubstr("--trace: '7' is no level; take 0 to 6"));
    EXPECT_THAT(complaint({"--trace", "x", "prefixes"}), HasSubstr("'x' is no level; take 0 to 6"));
    EXPECT_THAT(complaint({"list", "-o", "DEVICE,NAME"}),
                HasSubstr("'NAME' is no column; the columns are DEVICE, STACK, LEVEL, PART, WHOLE, MARK,"));
    EXPECT_THAT(complaint({"list", "--json", "--raw"}), HasSubstr("excludes"));
    EXPECT_THAT(complaint({"--trace-file", "", "prefixes"}), HasSubstr("names no file"));
    EXPECT_THAT(complaint({"--trace-file", "/none/x", "prefixes"}),
                HasSubstr("cannot write the trace file '/none/x': No such file or directory; give a file"));
}

TEST(CommandHelp, EveryCommandHasOneWithAnExample)
{
    const Ended main = kivclaim({"--help"});
    EXPECT_EQ(main.status, 0);
    for (const char* const command :
         {"list", "claim", "is-partition", "partition", "whole", "prefixes", "explain", "active-path"}) {
        EXPECT_THAT(main.output, HasSubstr(std::string("\n  ") + command + " "));
        const Ended help = kivclaim({command, "--help"});
        EXPECT_EQ(help.status, 0);
        EXPECT_THAT(help.output, HasSubstr(std::string("Usage: kivclaim ") + command));
        EXPECT_THAT(help.output, HasSubstr(std::string("Example: kivclaim ") + command));
        EXPECT_THAT(help.output, HasSubstr("Exit status: 0 yes or done, 1 some answer is no, 2 wrong usage"));
        EXPECT_EQ(help.errors, "");
    }
}

TEST(CommandVersion, IsTheLibrarysReleaseIdentification)
{
    const Ended ended = kivclaim({"--version"});
    EXPECT_THAT(ended.output, AllOf(StartsWith("kivclaim " KIVCLAIM_VERSION " (revision "), EndsWith(")\n")));
    EXPECT_EQ(ended.status, 0);
    EXPECT_THAT(contentOf(KIVCLAIM_LIBRARY), HasSubstr(ended.output.substr(0, ended.output.size() - 1)));
}

TEST(CommandTrace, ShowsRecordsUpToTheLevelOnStandardError)
{
    EXPECT_EQ(kivclaim({"--no-warn", "claim", "/dev/emcpowera"}).errors, "");
    const Ended information = kivclaim({"--trace", "3", "claim", "/dev/emcpowera"});
    EXPECT_THAT(information.errors, HasSubstr(" INFO: CKivPowerPathClaim::claim - returning CLAIM_SECONDARY\n"));
    EXPECT_THAT(information.errors, Not(HasSubstr("Entering")));
    EXPECT_THAT(kivclaim({"claim", "/dev/emcpowera", "--trace", "6"}).errors, HasSubstr("Entering Function claim"));
    EXPECT_EQ(kivclaim({"--no-warn", "--trace", "2", "claim", "/dev/emcpowera"}).errors, "");
    EXPECT_EQ(information.output, "16 powerpath /dev/emcpowera\n");
}

TEST(CommandTrace, KeepsRecordsInAFile)
{
    const tests::TemporaryFolder folder;
    const std::string all = folder.path() + "/all.log";
    const std::string some = folder.path() + "/some.log";
    EXPECT_EQ(kivclaim({"--no-warn", "--trace-file", all, "claim", "/dev/emcpowera"}).errors, "");
    EXPECT_THAT(contentOf(all), HasSubstr("Entering Function claim"));
    kivclaim({"--trace-file", some, "--trace", "3", "claim", "/dev/emcpowera"});
    EXPECT_THAT(contentOf(some), AllOf(HasSubstr("CLAIM_SECONDARY"), Not(HasSubstr("Entering"))));
}

TEST(ExampleHost, AnswersLikeTheCommand)
{
    const Ended ended = Process(EXAMPLE_HOST, {"/dev/emcpowera", "/dev/emcpowerb15", "/dev/null"}).run();
    EXPECT_EQ(ended.output, "/dev/emcpowera 0\n/dev/emcpowerb 15\n/dev/null: not claimed\n");
    EXPECT_EQ(ended.status, 1);
}
