// Claim modules of others as processes see them: `kivclaim --module` and the example host with the example module.
#include "tests/mock_machine.h"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>

using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using tests::Ended;
using tests::Process;

namespace {

constexpr char claimsTooMuch[] = MODULES "claims_too_much.so";
constexpr char wrongModule[] = MODULES "wrong_module.so";

// Runs the command with the NVMe module.
Ended kivclaim(std::vector<std::string> arguments, const std::string& input = "")
{
    arguments.insert(arguments.begin(), {"--module", NVME_MODULE});
    return Process(KIVCLAIM_COMMAND, std::move(arguments)).reads(input).run();
}

// What the command says about a file that it must refuse: nothing but one line on standard error, which begins with
// the file's name.
std::string refusal(const std::string& file, const std::string& wrong = "")
{
    const Ended ended = Process(KIVCLAIM_COMMAND,
                                {"claim", "/dev/emcpowera", "--trace", "6", "--module", NVME_MODULE, "--module", file})
                            .environment("WRONG_MODULE", wrong)
                            .environment("LC_ALL", "C")
                            .run();
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.status, 2);
    const std::string start = "kivclaim: cannot load the module '" + file + "': ";
    EXPECT_THAT(ended.errors, AllOf(StartsWith(start), EndsWith("\n")));
    EXPECT_EQ(std::count(ended.errors.begin(), ended.errors.end(), '\n'), 1) << ended.errors;
    return ended.errors.substr(std::min(start.size(), ended.errors.size()));
}

constexpr char giveAModule[] = "; give a claim module built against this release, see claim/kiv_claim_module_entry.h\n";

}  // namespace

TEST(NvmeModule, ClaimsNamespacesAndTheirPartitions)
{
    const Ended ended = kivclaim({"--no-warn", "claim", "/dev/nvme0n1", "/dev/nvme0n1p2", "/dev/nvme10n23p456"});
    EXPECT_EQ(ended.output,
              "2 CNvmeClaim /dev/nvme0n1\n2 CNvmeClaim /dev/nvme0n1p2\n2 CNvmeClaim /dev/nvme10n23p456\n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(NvmeModule, LeavesEverythingElseAlone)
{
    for (const char* const path :
         {"/dev/nvme0", "/dev/nvme", "/dev/nvmen1", "/dev/nvme0n", "/dev/nvme0n1p", "/dev/nvme0n1p0", "/dev/nvme0n1p01",
          "/dev/nvme00n1", "/dev/nvme0n1p1x", "/dev/nvme0n1p-1", "/dev/nvme0n1p+1", "/dev/nvme0n1p1p1", "/dev/nvme0n1 ",
          "/dev/nvme0n1p4294967296", "/dev/nvme-fabrics", "/x/dev/nvme0n1", "nvme0n1", "/dev/ng0n1"}) {
        EXPECT_EQ(kivclaim({"claim", path}).output, std::string("0 none ") + path + "\n");
    }
}

TEST(NvmeModule, TakesPartitionsApart)
{
    EXPECT_EQ(
        kivclaim({"whole", "/dev/nvme0n1", "/dev/nvme0n1p2", "/dev/nvme10n23p456", "/dev/nvme0n1p4294967295"}).output,
        "/dev/nvme0n1 0\n/dev/nvme0n1 2\n/dev/nvme10n23 456\n/dev/nvme0n1 4294967295\n");
    EXPECT_EQ(kivclaim({"is-partition", "/dev/nvme0n1", "/dev/nvme0n1p2"}).output,
              "no /dev/nvme0n1\nyes /dev/nvme0n1p2\n");
}

TEST(NvmeModule, NamesPartitions)
{
    EXPECT_EQ(kivclaim({"partition", "/dev/nvme0n1", "12"}).output, "/dev/nvme0n1p12\n");
    EXPECT_EQ(kivclaim({"partition", "/dev/nvme0n1", "4294967295"}).output, "/dev/nvme0n1p4294967295\n");
}

TEST(NvmeModule, TracesIntoTheLogOfItsHost)
{
    const Ended ended = kivclaim({"--trace", "6", "claim", "/dev/nvme0n1"});
    EXPECT_THAT(ended.errors, AllOf(HasSubstr("INFO: CNvmeClaim::claim - [/dev/nvme0n1] is an NVMe disk\n"),
                                    HasSubstr("Entering Function claim ["), HasSubstr(", nvme_claim.cpp]\n")));
    EXPECT_THAT(ended.errors, Not(HasSubstr("registerClaimModule"))) << "the records are those of the question";
}

TEST(CommandModule, AnswersForItsOwnPathsAndLeavesTheOthersAsTheyWere)
{
    EXPECT_EQ(kivclaim({"claim", "/dev/nvme0n1", "/dev/emcpowera", "/dev/sda", "/dev/null"}).output,
              "2 CNvmeClaim /dev/nvme0n1\n16 powerpath /dev/emcpowera\n2 native /dev/sda\n0 none /dev/null\n");
}

TEST(CommandModule, WorksWithPathsFromStandardInput)
{
    const std::string paths = "/dev/nvme0n1p7\n/dev/emcpowera1\n";
    EXPECT_EQ(kivclaim({"whole", "-"}, paths).output, "/dev/nvme0n1 7\n/dev/emcpowera 1\n");
    EXPECT_EQ(kivclaim({"claim", "-"}, paths).output, "2 CNvmeClaim /dev/nvme0n1p7\n16 powerpath /dev/emcpowera1\n");
}

TEST(CommandModule, ItsPrefixesComeFirst)
{
    EXPECT_THAT(kivclaim({"prefixes"}).output, StartsWith("/dev/nvme\n/dev/mapper/\n"));
}

TEST(CommandModule, ShowsItsDevicesInTheList)
{
    tests::MockMachine machine;
    for (const char* const name : {"nvme0n1", "nvme0n1p1", "nvme0n1p12", "emcpowera"}) {
        machine.disk(name);
    }
    const Ended ended =
        machine.process(KIVCLAIM_COMMAND, {"--module", NVME_MODULE, "--tree"}).environment("LC_ALL", "C").run();
    EXPECT_EQ(ended.output,
              "DEVICE            STACK      LEVEL PART WHOLE\n"
              "/dev/emcpowera    powerpath     16      \n"
              "/dev/nvme0n1      CNvmeClaim     2      \n"
              "|-/dev/nvme0n1p1  CNvmeClaim     2    1 /dev/nvme0n1\n"
              "`-/dev/nvme0n1p12 CNvmeClaim     2   12 /dev/nvme0n1\n");
    EXPECT_EQ(ended.status, 0);
}

TEST(CommandModule, ShowsUpInAnExplanation)
{
    const std::string explanation = kivclaim({"explain", "/dev/nvme0n1"}).output;
    EXPECT_THAT(explanation, HasSubstr("  3. CKivDeviceMapperClaim (device-mapper) answers 0, not claimed\n"
                                       "  4. CNvmeClaim answers 2\n"
                                       "Claimed by CNvmeClaim, level 2: the only module that claims it.\n"));
    EXPECT_THAT(explanation, HasSubstr("Records of the request, each behind its level:\n"
                                       "  6 Entering Function claim [109, kiv_claim_manager.cpp]\n"));
    EXPECT_THAT(explanation, HasSubstr("  3 INFO: CNvmeClaim::claim - [/dev/nvme0n1] is an NVMe disk\n"));
}

TEST(CommandModule, AStrongerModuleWins)
{
    EXPECT_EQ(kivclaim({"--module", claimsTooMuch, "claim", "/dev/nvme0n1p2", "/dev/emcpowera1", "/any"}).output,
              "32 CClaimsTooMuch /dev/nvme0n1p2\n32 CClaimsTooMuch /dev/emcpowera1\n32 CClaimsTooMuch /any\n");
    EXPECT_THAT(kivclaim({"--module", claimsTooMuch, "explain", "/dev/nvme0n1p2"}).output,
                HasSubstr("  4. CNvmeClaim answers 2\n  5. CClaimsTooMuch answers 32\n"
                          "Claimed by CClaimsTooMuch, level 32: the strongest claim.\n"));
}

TEST(CommandModule, OfEqualModulesTheOneGivenFirstWins)
{
    const Ended twice = kivclaim({"--no-warn", "--module", NVME_MODULE, "explain", "/dev/nvme0n1"});
    EXPECT_THAT(twice.output, HasSubstr("  4. CNvmeClaim answers 2\n  5. CNvmeClaim answers 2\n"
                                        "Claimed by CNvmeClaim, level 2: a tie: of the modules with the highest "
                                        "level, the one asked first.\n"));
    EXPECT_EQ(twice.status, 0);
    EXPECT_EQ(twice.errors, "");
}

TEST(CommandModule, TakesOneFileForEachOption)
{
    EXPECT_EQ(Process(KIVCLAIM_COMMAND, {"claim", "--module", NVME_MODULE, "/dev/nvme0n1"}).run().output,
              "2 CNvmeClaim /dev/nvme0n1\n");
}

TEST(CommandModule, ANameWithoutASlashIsAFileOfTheCurrentDirectory)
{
    const tests::TemporaryFolder folder;
    std::filesystem::copy(NVME_MODULE, folder.path() + "/libm.so.6");
    const std::string command = "cd " + folder.path() + " && exec " KIVCLAIM_COMMAND " --module ";
    EXPECT_EQ(Process("sh", {"-c", command + "libm.so.6 claim /dev/nvme0n1"}).run().output,
              "2 CNvmeClaim /dev/nvme0n1\n");
    EXPECT_THAT(Process("sh", {"-c", command + "libpthread.so.0 claim /dev/nvme0n1"}).run().errors,
                HasSubstr("'libpthread.so.0': No such file or directory"))
        << "no library path is searched";
}

TEST(CommandModule, RefusesAFileThatIsNotThere)
{
    EXPECT_EQ(refusal("/none/module.so"), std::string("No such file or directory") + giveAModule);
    EXPECT_THAT(Process(KIVCLAIM_COMMAND, {"--module", "", "prefixes"}).run().errors, HasSubstr("names no file"));
}

TEST(CommandModule, RefusesAFileThatIsNoLibrary)
{
    const tests::TemporaryFolder folder;
    folder.addScript("script", std::string(1000, '#') + "\n");
    folder.addFile("empty", "");
    EXPECT_EQ(refusal(folder.path()), std::string("it is no regular file") + giveAModule);
    EXPECT_EQ(refusal(folder.path() + "/script"), std::string("invalid ELF header") + giveAModule);
    EXPECT_EQ(refusal(folder.path() + "/empty"), std::string("file too short") + giveAModule);
}

TEST(CommandModule, RefusesAProgram)
{
    EXPECT_THAT(refusal(KIVCLAIM_COMMAND), HasSubstr("cannot dynamically load position-independent executable"));
}

TEST(CommandModule, RefusesAPipeWithoutWaitingForAWriter)
{
    const tests::TemporaryFolder folder;
    const std::string pipe = folder.path() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(refusal(pipe), std::string("it is no regular file") + giveAModule);
}

TEST(CommandModule, RefusesACopyThatWasInterrupted)
{
    const tests::TemporaryFolder folder;
    const std::string file = folder.path() + "/module.so";
    std::filesystem::copy(NVME_MODULE, file);
    for (const std::uintmax_t size : {8000U, 5000U, 4096U, 1000U, 300U}) {
        std::filesystem::resize_file(file, size);
        EXPECT_EQ(refusal(file), "the file is cut off; copy it anew\n") << size;
    }
}

TEST(CommandModule, LeavesALibraryOfTheOtherByteOrderToTheLoader)
{
    const tests::TemporaryFolder folder;
    std::filesystem::copy(NVME_MODULE, folder.path() + "/module.so");
    std::string content = folder.contentOf("module.so");
    content[EI_DATA] = content[EI_DATA] == ELFDATA2LSB ? ELFDATA2MSB : ELFDATA2LSB;
    const auto turnRound = [&](std::size_t offset, std::size_t size) {
        const auto begin = content.begin() + static_cast<std::ptrdiff_t>(offset);
        std::reverse(begin, begin + static_cast<std::ptrdiff_t>(size));
    };
    turnRound(offsetof(Elf64_Ehdr, e_phoff), sizeof(Elf64_Ehdr::e_phoff));
    turnRound(offsetof(Elf64_Ehdr, e_phnum), sizeof(Elf64_Ehdr::e_phnum));
    folder.addFile("module.so", content);
    EXPECT_THAT(refusal(folder.path() + "/module.so"),
                AllOf(HasSubstr("ELF file data encoding"), EndsWith(giveAModule)));
}

TEST(CommandModule, RefusesALibraryWithoutTheFunction)
{
    EXPECT_EQ(refusal(MODULES "no_entry.so"),
              std::string("it has no function kivclaim_create_claim_module") + giveAModule);
}

TEST(CommandModule, RefusesAModuleOfAnotherContract)
{
    EXPECT_EQ(refusal(MODULES "other_contract.so"),
              "it was built against contract 544, and the host is of contract 288; build it against this release's "
              "headers, with the options that they ask for\n");
}

TEST(CommandModule, RefusesAModuleThatWasCompiledWithOtherOptions)
{
    constexpr char remedy[] = "; build it against this release's headers, with the options that they ask for\n";
    EXPECT_EQ(refusal(MODULES "no_rtti.so"),
              std::string("it was compiled with -fno-rtti and the host without") + remedy);
    EXPECT_EQ(refusal(MODULES "debug_mode.so"),
              std::string("it was compiled with -D_GLIBCXX_DEBUG and the host without") + remedy);
}

TEST(CommandModule, RefusesAModuleThatDoesNotTellItsContractAndLeavesItAlone)
{
    EXPECT_THAT(refusal(wrongModule, "contract-forgotten"), StartsWith("it was built against contract 0, "));
}

TEST(CommandModule, RefusesAModuleThatNeedsAnUndefinedSymbol)
{
    EXPECT_THAT(refusal(MODULES "old_strings.so"),
                AllOf(StartsWith("undefined symbol: _ZN19CKivDeviceClaimBase"), EndsWith(giveAModule)));
    EXPECT_EQ(refusal(MODULES "needs_nobodys_function.so"),
              std::string("undefined symbol: kivclaim_test_nobody_has_this") + giveAModule);
}

TEST(CommandModule, RefusesAFileWhoseFunctionFails)
{
    EXPECT_EQ(refusal(wrongModule, "constructor-throws"),
              "kivclaim_create_claim_module made no module; ask its author\n");
    EXPECT_EQ(refusal(wrongModule, "function-throws"),
              "kivclaim_create_claim_module threw an exception: no such luck; ask its author\n");
    EXPECT_EQ(refusal(wrongModule, "function-throws-anything"),
              "kivclaim_create_claim_module threw an exception; ask its author\n");
}

TEST(CommandModule, WhatAModuleThrowsWhileItIsAskedEndsTheCommandInOneLine)
{
    const auto ask = [](const char* wrong) {
        const Ended ended = Process(KIVCLAIM_COMMAND, {"--module", wrongModule, "claim", "/dev/sda"})
                                .environment("WRONG_MODULE", wrong)
                                .run();
        EXPECT_EQ(ended.output, "");
        EXPECT_EQ(ended.status, 2);
        return ended.errors;
    };
    EXPECT_EQ(ask("claim-throws"), "kivclaim: cannot say anything about /dev/sda\n");
    EXPECT_EQ(ask(""),
              "kivclaim: a claim module threw an unknown exception; leave out --module to ask the built-in ones "
              "alone\n");
}

TEST(CommandModule, IsNothingForTheActivePath)
{
    const Ended ended = kivclaim({"active-path", "/dev/sdc", "--yes"});
    EXPECT_EQ(ended.errors, "kivclaim: active-path asks the volume manager and no claim module; leave out --module\n");
    EXPECT_EQ(ended.status, 2);
}

TEST(CommandModule, IsInTheHelp)
{
    EXPECT_THAT(Process(KIVCLAIM_COMMAND, {"--help"}).run().output, ContainsRegex("\n +--module FILE "));
}

TEST(ExampleHost, AsksAModuleThatItsUserNames)
{
    const Ended ended = Process(EXAMPLE_HOST, {"--module", NVME_MODULE, "/dev/nvme0n1p12", "/dev/nvme0"}).run();
    EXPECT_EQ(ended.output, "/dev/nvme0n1 12\n/dev/nvme0: not claimed\n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 1);
}

namespace {

// What the example host says about a file that it must refuse, without its beginning, which names the file.
std::string refusalOfTheExample(const std::string& file, const std::string& wrong = "")
{
    const Ended ended = Process(EXAMPLE_HOST, {"--module", file, "/dev/sda"}).environment("WRONG_MODULE", wrong).run();
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.status, 2);
    const std::string start = "cannot load the claim module " + file + ": ";
    EXPECT_THAT(ended.errors, StartsWith(start));
    return ended.errors.substr(std::min(start.size(), ended.errors.size()));
}

}  // namespace

TEST(ExampleHost, SaysWhyItRefusesAModule)
{
    EXPECT_EQ(refusalOfTheExample("/none"), "/none: cannot open shared object file: No such file or directory\n");
    EXPECT_EQ(refusalOfTheExample(MODULES "no_entry.so"), "it has no function kivclaim_create_claim_module\n");
    EXPECT_EQ(refusalOfTheExample(MODULES "other_contract.so"),
              "it was built against contract 544, and the host is of contract 288\n");
    EXPECT_EQ(refusalOfTheExample(MODULES "no_rtti.so"), "it was compiled with -fno-rtti and the host without\n");
    EXPECT_EQ(refusalOfTheExample(wrongModule, "constructor-throws"),
              "its module could not be made: the constructor threw an exception\n");
}
