// The lab's host: has one claim manager, reads one question a line from standard input, and prints one answer a line.
//
//     claim PATH              level and stack, such as "16 device-mapper"
//     is-partition PATH       yes or no
//     partition PATH N        the partition's path
//     whole PATH              whole device and partition number
//     strings                 the claim strings in the order in which the manager gives them
//     active-path PATH        the answer of slot 9 of the claiming module
//     raw PATH                whether the claiming module calls the device raw: yes or no
//     clear                   empties the manager's list of logical volumes: the answer is always "done"
//     STACK: QUESTION         asks only one module: "device-mapper: clear"
//     release TEXT            uname returns the release TEXT from now on, as with another kernel
//
// An empty answer is printed as "nothing", a partition number that was not written as "-". With --trace LEVEL, the
// library's records go to standard error; with --snapshot, /sbin/lvdisplay runs once for all questions. Exit status: 0,
// or 2 for a line that is not a question.
#include "claim/kiv_claim_manager.h"
#include "host/command_snapshot.h"
#include "host/trace_log.h"
#include "tools/stack_name.h"

#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Empty: the real one.
std::string givenRelease;

}  // namespace

// The plug-in calls this function of the process.
extern "C" __attribute__((visibility("default"))) int uname(utsname* name)
{
    const auto result = static_cast<int>(syscall(SYS_uname, name));
    if (result == 0 && !givenRelease.empty()) {
        std::strncpy(name->release, givenRelease.c_str(), sizeof name->release - 1);
    }
    return result;
}

namespace {

constexpr unsigned int unwritten = 4242;

std::string orNothing(const std::string& answer)
{
    return answer.empty() ? "nothing" : answer;
}

std::string yesOrNo(bool answer)
{
    return answer ? "yes" : "no";
}

class Host {
public:
    explicit Host(int traceLevel)
    {
        manager.registerTraceLog(kivclaim::host::makeTraceLog({kivclaim::host::traceToStandardError(traceLevel)}));
    }

    std::string answer(const std::string& line)
    {
        std::istringstream words(line);
        std::string question;
        std::string path;
        words >> question;
        if (!question.empty() && question.back() == ':') {
            CKivDeviceClaimBase& module = named(question.substr(0, question.size() - 1));
            words >> question >> path;
            return answerOfModule(module, question, path);
        }
        words >> path;
        if (question == "claim") {
            CKivDeviceClaimBase* module = nullptr;
            const unsigned int level = manager.getClaimModule(module, path);
            return std::to_string(level) + " " + kivclaim::tools::stackName(module);
        }
        if (question == "active-path" || question == "raw") {
            CKivDeviceClaimBase* module = nullptr;
            manager.getClaimModule(module, path);
            return module == nullptr ? "no module" : answerOfModule(*module, question, path);
        }
        if (question == "strings") {
            return strings();
        }
        if (question == "release") {
            givenRelease = path;
            return "done";
        }
        return answerOf(manager, question, path, words);
    }

private:
    // The questions that manager and modules have in common.
    template <class Asked>
    static std::string answerOf(Asked& asked, const std::string& question, const std::string& path,
                                std::istream& further)
    {
        if (question == "claim") {
            return std::to_string(asked.claim(path));
        }
        if (question == "is-partition") {
            return yesOrNo(asked.isPartition(path) != 0);
        }
        if (question == "partition") {
            unsigned int number = 0;
            further >> number;
            return orNothing(asked.appendPartitionSuffix(path, number));
        }
        if (question == "whole") {
            unsigned int number = unwritten;
            const std::string whole = asked.removePartitionSuffix(path, number);
            return orNothing(whole) + " " + (number == unwritten ? "-" : std::to_string(number));
        }
        if (question == "clear") {
            asked.clearLvmDeviceNameList();
            return "done";
        }
        throw std::invalid_argument(question);
    }

    static std::string answerOfModule(CKivDeviceClaimBase& module, const std::string& question, const std::string& path)
    {
        if (question == "active-path") {
            return orNothing(module.getActivePath(path, false));
        }
        if (question == "raw") {
            return yesOrNo(module.isRawDevice(path));
        }
        std::istringstream none;
        return answerOf(module, question, path, none);
    }

    std::string strings()
    {
        std::string all;
        for (const std::string& text : manager.getDeviceClaimStrings()) {
            all += (all.empty() ? "" : " ") + text;
        }
        return all;
    }

    CKivDeviceClaimBase& named(const std::string& stack)
    {
        for (CKivDeviceClaimBase* const module : manager.claimModules()) {
            if (kivclaim::tools::stackName(module) == stack) {
                return *module;
            }
        }
        throw std::invalid_argument(stack);
    }

    CKivClaimManager manager;
};

}  // namespace

int main(int argc, char** argv)
{
    int traceLevel = 0;
    std::optional<kivclaim::host::CommandSnapshot> snapshot;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--snapshot") == 0) {
            snapshot.emplace(std::vector<std::string>{"/sbin/lvdisplay"});
        } else if (std::strcmp(argv[i], "--trace") == 0 && i + 1 < argc) {
            traceLevel = std::atoi(argv[++i]);
        }
    }
    Host host(traceLevel);
    for (std::string line; std::getline(std::cin, line);) {
        try {
            std::cout << host.answer(line) << std::endl;
        } catch (const std::invalid_argument& error) {
            std::cerr << "lab_host: '" << error.what() << "' in '" << line << "' is neither a question nor a stack\n";
            return 2;
        }
    }
    return 0;
}
