// kivclaim --check-module and --check-host, as a process.
#include "tests/process.h"
#include "tools/checked_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <elf.h>
#include <sys/stat.h>

#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using tests::Ended;
using tests::Process;

namespace {

Ended command(const std::vector<std::string>& arguments, const std::string& wrong = "")
{
    return Process(KIVCLAIM_COMMAND, arguments).environment("WRONG_MODULE", wrong).environment("LC_ALL", "C").run();
}

json report(const std::string& option, const std::string& file, int status, const std::string& wrong = "")
{
    const Ended ended = command({option, file, "--json"}, wrong);
    EXPECT_EQ(ended.status, status) << ended.output << ended.errors;
    EXPECT_EQ(ended.signal, 0);
    json value = json::parse(ended.output, nullptr, false);
    EXPECT_TRUE(value.is_object()) << ended.output << ended.errors;
    EXPECT_EQ(value["ok"], status == 0);
    return value;
}

std::vector<std::string> problemsOf(const json& report)
{
    return report["problems"];
}

// What is wrong with the module that breaks a rule.
std::vector<std::string> problemsOfTheWrongModule(const std::string& wrong)
{
    return problemsOf(report("--check-module", MODULES "wrong_module.so", 1, wrong));
}

std::string contentOf(const std::string& path)
{
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

std::string supplierOf(const json& report, const std::string& operation)
{
    return std::filesystem::path(report["operations"][operation].get<std::string>()).filename();
}

}  // namespace

TEST(CheckModule, TellsWhatAWorkingModuleIs)
{
    const Ended ended = command({"--check-module", NVME_MODULE, "/dev/nvme0n1p2"});
    EXPECT_EQ(ended.output, "check: module\nfile: " NVME_MODULE
                            "\nexports: kivclaim_create_claim_module\ncontract: 288\nclass: CNvmeClaim\n"
                            "prefixes: /dev/nvme\nquestion: path: /dev/nvme0n1p2\nquestion: level: 2\n"
                            "question: stack: CNvmeClaim\nquestion: isPartition: yes\nok: yes\n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
}

TEST(CheckModule, WritesJson)
{
    const json value = report("--check-module", NVME_MODULE, 0);
    EXPECT_EQ(value["check"], "module");
    EXPECT_EQ(value["contract"], 288);
    EXPECT_EQ(value["class"], "CNvmeClaim");
    EXPECT_EQ(value["prefixes"], json::array({"/dev/nvme"}));
    EXPECT_EQ(value["question"],
              json({{"path", "/dev/nvme"}, {"level", 0}, {"stack", "none"}, {"isPartition", false}}));
    EXPECT_EQ(value["problems"], json::array());
}

TEST(CheckModule, ACrashOfTheModuleIsReportedWithTheStep)
{
    EXPECT_THAT(problemsOfTheWrongModule("claim-crashes"),
                ElementsAre("claim: the process was ended by signal 6 (Aborted)"));
    EXPECT_THAT(problemsOfTheWrongModule("destructor-crashes"),
                ElementsAre("its destructor: the process was ended by signal 6 (Aborted)"));
}

TEST(CheckModule, AModuleThatEndsTheProcessIsReported)
{
    EXPECT_THAT(problemsOfTheWrongModule("constructor-exits"),
                ElementsAre("loading the file and making its module: the process ended before its time"));
}

TEST(CheckModule, ACrashIsToldUnderAParentThatIgnoresItsChildren)
{
    Process process("env", {"--ignore-signal=CHLD", KIVCLAIM_COMMAND, "--check-module", MODULES "wrong_module.so"});
    EXPECT_THAT(process.environment("WRONG_MODULE", "claim-crashes").environment("LC_ALL", "C").run().output,
                HasSubstr("problem: claim: the process was ended by signal 6 (Aborted)\n"));
}

TEST(CheckModule, AProcessThatTheModuleLeavesKeepsNobodyWaiting)
{
    EXPECT_THAT(problemsOfTheWrongModule("leaves-a-process"), ElementsAre("claim threw an exception"));
}

TEST(CheckModule, ASignalEndsItWithTheProcessOfTheModule)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        Process process(KIVCLAIM_COMMAND, {"--check-module", MODULES "wrong_module.so"});
        process.environment("WRONG_MODULE", "claim-hangs").start();
        process.awaitError("hangs");
        process.signal(signal);
        // It reads to the end of standard error, which the other process holds as well.
        const Ended ended = process.finish();
        EXPECT_EQ(ended.signal, signal);
        EXPECT_EQ(ended.output, "");
    }
}

TEST(CheckModule, AnExceptionIsReportedWithTheStep)
{
    EXPECT_THAT(problemsOfTheWrongModule("claim-throws"),
                ElementsAre("claim threw an exception: cannot say anything about /dev/sda1"));
    EXPECT_THAT(problemsOfTheWrongModule(""), ElementsAre("claim threw an exception"));
    EXPECT_THAT(problemsOfTheWrongModule("constructor-throws"),
                ElementsAre(EndsWith("kivclaim_create_claim_module made no module; ask its author")));
}

TEST(CheckModule, TellsWhyAModuleIsRefused)
{
    const auto problems = [](const char* file) { return problemsOf(report("--check-module", file, 1)); };
    EXPECT_THAT(problems(MODULES "no_rtti.so"),
                ElementsAre(HasSubstr("it was compiled with -fno-rtti and the host without")));
    EXPECT_THAT(problems(MODULES "other_contract.so"), ElementsAre(HasSubstr("built against contract 544")));
    EXPECT_THAT(problems(MODULES "no_entry.so"), ElementsAre(HasSubstr("it has no function")));
}

TEST(CheckModule, AFrameworkInTheModuleIsAProblem)
{
    EXPECT_THAT(
        problemsOf(report("--check-module", SECOND_HOST, 1)),
        testing::Contains("it exports operations of a host framework, which come from the process that loads it"));
}

TEST(CheckHost, TellsThatAProgramSuppliesItsFramework)
{
    const json value = report("--check-host", REPORTS "objects", 0);
    EXPECT_EQ(value["kind"], "program");
    EXPECT_EQ(value["isLinked"], true);
    EXPECT_THAT(value["exports"], SizeIs(8));
    EXPECT_THAT(value["operations"], SizeIs(8));
    EXPECT_EQ(supplierOf(value, "CFiTraceLog::trace"), "report_on_objects");
    EXPECT_THAT(value["claimLibrary"].get<std::string>(), HasSubstr("libkivclaim.so.1"));
}

TEST(CheckHost, TellsThatAnArchiveIsNotUsed)
{
    const json value = report("--check-host", REPORTS "archive_before", 0);
    EXPECT_THAT(value["exports"], IsEmpty());
    EXPECT_EQ(supplierOf(value, "CFiTraceLog::trace"), "libztfi_pdk.so.4.4");
}

TEST(CheckHost, AHiddenFrameworkIsAProblem)
{
    const std::vector<std::string> problems = problemsOf(report("--check-host", REPORTS "hidden_objects", 1));
    ASSERT_THAT(problems, SizeIs(8));
    EXPECT_THAT(problems[0], AllOf(StartsWith("it has CFiTraceLog::trace, hidden, but "),
                                   EndsWith("libztfi_pdk.so.4.4 supplies it")));
}

TEST(CheckHost, AMixOfTwoFrameworksIsAProblemOfAProgramThatOpensTheLibrary)
{
    const json value = report("--check-host", PROCESS_WITHOUT_TRIM, 1);
    EXPECT_EQ(value["isLinked"], false);
    EXPECT_EQ(supplierOf(value, "CFiStringTool::trim"), "libztfi_pdk.so.4.4");
    EXPECT_EQ(supplierOf(value, "CFiStringTool::find"), "process_without_trim");
    EXPECT_THAT(problemsOf(value), ElementsAre(StartsWith("it has CFiStringTool::trim, hidden, but "),
                                               StartsWith("the framework is mixed")));
}

TEST(CheckHost, RunsNothingOfTheProgram)
{
    // It would print answers, and end with status 2 without its library.
    const Ended ended = command({"--check-host", FRAMEWORK_PROCESS, "--json"});
    EXPECT_EQ(ended.errors, "");
    EXPECT_TRUE(json::accept(ended.output)) << ended.output;
}

TEST(CheckHost, AsksAFrameworkThatIsALibrary)
{
    const tests::TemporaryFolder tools;
    tools.addScript("lvdisplay", "printf '  LV Name   /dev/kivclaim/check1\\n  VG Name   kivclaim'\n");
    Process process(KIVCLAIM_COMMAND, {"--check-host", SECOND_HOST, "--json"});
    const Ended ended = process.sees(tools.path(), "/usr/sbin").run();
    const json value = json::parse(ended.output, nullptr, false);
    EXPECT_EQ(ended.status, 0) << ended.output << ended.errors;
    EXPECT_EQ(value["kind"], "library");
    EXPECT_EQ(supplierOf(value, "CFiExecPipeBase::Exec"), "libsecond_host.so");
    EXPECT_EQ(value["question"]["path"], "/dev/mapper/kivclaim-check1");
    EXPECT_EQ(value["question"]["level"], 0) << "the framework's runner and string tools read the list";
}

TEST(CheckHost, ALibraryThatIsNoFrameworkLacksEveryOperation)
{
    EXPECT_THAT(problemsOf(report("--check-host", NVME_MODULE, 1)), SizeIs(8));
}

TEST(CheckHost, AProgramThatIsLinkedStaticallyIsAProblem)
{
    const tests::TemporaryFolder folder;
    std::string program = contentOf(REPORTS "objects");
    // As a static one has it: no interpreter is named.
    Elf64_Ehdr header{};
    std::memcpy(&header, program.data(), sizeof header);
    for (unsigned int i = 0; i < header.e_phnum; ++i) {
        char* const place = program.data() + header.e_phoff + i * sizeof(Elf64_Phdr);
        Elf64_Phdr part{};
        std::memcpy(&part, place, sizeof part);
        part.p_type = part.p_type == PT_INTERP ? PT_NULL : part.p_type;
        std::memcpy(place, &part, sizeof part);
    }
    folder.addFile("static", program);
    EXPECT_THAT(problemsOf(report("--check-host", folder.path() + "/static", 1)),
                ElementsAre("it is linked statically, so the loader binds nothing in it; link it with shared "
                            "libraries"));
}

TEST(CheckHost, AFrameworkThatTheLoaderCannotPreloadIsRefused)
{
    const tests::TemporaryFolder folder;
    for (const char* const name : {"with blank.so", "with:colon.so"}) {
        folder.addFile(name, contentOf(SECOND_HOST));
        const Ended ended = command({"--check-host", folder.path() + "/" + name});
        EXPECT_THAT(ended.errors, HasSubstr("the loader preloads no file with a blank or a colon in its path"));
        EXPECT_EQ(ended.status, 2);
    }
}

TEST(Check, ACopyThatWasInterruptedIsAProblem)
{
    const tests::TemporaryFolder folder;
    folder.addFile("module.so", contentOf(NVME_MODULE).substr(0, 6000));
    folder.addFile("program", contentOf(REPORTS "objects").substr(0, 6000));
    EXPECT_THAT(problemsOf(report("--check-module", folder.path() + "/module.so", 1)),
                ElementsAre(EndsWith("the file is cut off; copy it anew")));
    for (const char* const name : {"/module.so", "/program"}) {
        EXPECT_THAT(problemsOf(report("--check-host", folder.path() + name, 1)),
                    ElementsAre("the file is cut off; copy it anew"));
    }
}

TEST(Check, RefusesAFileOfAnotherKindOfMachine)
{
    const tests::TemporaryFolder folder;
    std::string module = contentOf(NVME_MODULE);
    module[offsetof(Elf64_Ehdr, e_machine)] = static_cast<char>(0xFF);
    folder.addFile("module.so", module);
    for (const char* const option : {"--check-module", "--check-host"}) {
        const Ended ended = command({option, folder.path() + "/module.so"});
        EXPECT_THAT(ended.errors, HasSubstr("it is no ELF file of this kind of machine; give a program"));
        EXPECT_EQ(ended.status, 2);
    }
}

TEST(Check, RefusesWhatItWouldNotLookAt)
{
    EXPECT_EQ(command({"--check-module", NVME_MODULE, "/dev/nvme0n1", "/dev/nvme1n1"}).errors,
              "kivclaim: '/dev/nvme1n1' was not expected; usage: kivclaim --check-module|--check-host FILE [-J] "
              "[PATH]\n");
    const Ended ended = command({"claim", "--check-host", SECOND_HOST, "/dev/sda"});
    EXPECT_THAT(ended.errors, HasSubstr("'claim' was not expected; usage: kivclaim --check-module"));
    EXPECT_EQ(ended.status, 2);
}

TEST(Check, RefusesAFileThatDoesNotExist)
{
    const tests::TemporaryFolder folder;
    folder.addFile("text", "nothing to load\n");
    folder.addFile("empty", "");
    ASSERT_EQ(mkfifo((folder.path() + "/pipe").c_str(), 0600), 0);
    for (const char* const option : {"--check-module", "--check-host"}) {
        EXPECT_EQ(command({option, "/none"}).errors,
                  "kivclaim: cannot examine '/none': No such file or directory; give a program or a shared library\n");
        for (const char* const name : {"/text", "/empty"}) {
            const Ended ended = command({option, folder.path() + name});
            EXPECT_THAT(ended.errors, HasSubstr("it is no ELF file of this kind of machine; give a program"));
            EXPECT_EQ(ended.status, 2);
        }
        for (const char* const name : {"/pipe", ""}) {
            const Ended ended = command({option, folder.path() + name});
            EXPECT_THAT(ended.errors, HasSubstr("it is no regular file; give a program"));
            EXPECT_EQ(ended.status, 2);
        }
    }
    EXPECT_EQ(command({"--check-module", NVME_MODULE, "--check-host", SECOND_HOST}).status, 2);
}

TEST(CheckedProcess, IsKilledWhenItsTimeIsOver)
{
    const kivclaim::tools::CheckedEnd end =
        kivclaim::tools::run({"/bin/sh", {"-c", "echo begun >&3; exec sleep 100"}, {}, false, "sh", 1});
    EXPECT_EQ(end.report, "begun\n");
    EXPECT_EQ(end.ending, "did not end within 1 seconds");
}

TEST(CheckedProcess, IsKilledThoughItHasClosedItsReport)
{
    const kivclaim::tools::CheckedEnd end =
        kivclaim::tools::run({"/bin/sh", {"-c", "exec 3>&-; exec sleep 100"}, {}, false, "sh", 1});
    EXPECT_EQ(end.ending, "did not end within 1 seconds");
}

TEST(CheckedProcess, GetsItsVariablesAndTellsItsStatus)
{
    const kivclaim::tools::CheckedEnd end =
        kivclaim::tools::run({"/bin/sh", {"-c", "echo $CHECKED >&2; exit 3"}, {{"CHECKED", "so"}}, true});
    EXPECT_EQ(end.report, "so\n");
    EXPECT_EQ(end.ending, "ended with status 3");
}
