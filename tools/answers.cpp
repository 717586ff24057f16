// The commands that hand one question on to the claim manager and print its answer.
#include "host/printable_text.h"
#include "tools/commands.h"
#include "tools/output.h"
#include "tools/path_input.h"
#include "tools/stack_name.h"

#include <algorithm>
#include <charconv>

using kivclaim::host::printableText;

namespace kivclaim::tools {

namespace {

// Paths from standard input are many questions.
Questions questionsIn(const std::vector<std::string>& paths)
{
    return std::find(paths.begin(), paths.end(), "-") != paths.end() ? Questions::many : Questions::one;
}

ExitStatus unclaimed(const std::string& path)
{
    complain("no stack claims " + path);
    return answeredNo;
}

unsigned int partitionNumber(const std::string& text)
{
    unsigned int number = 0;
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) {
        throw CommandError("'" + text + "' is no partition number; give a whole number from 0 to 4294967295");
    }
    return number;
}

}  // namespace

ExitStatus claim(const SessionOptions& options, const std::vector<std::string>& paths)
{
    Session session(options, questionsIn(paths));
    return forEachPath(paths, [&](const std::string& path) {
        CKivDeviceClaimBase* module = nullptr;
        const unsigned int level = session.manager.getClaimModule(module, path);
        printLine(std::to_string(level) + " " + stackName(module) + " " + printableText(path));
        session.complainIfUnsure(path);
        return module != nullptr ? answeredYes : answeredNo;
    });
}

ExitStatus isPartition(const SessionOptions& options, const std::vector<std::string>& paths)
{
    Session session(options, questionsIn(paths));
    return forEachPath(paths, [&](const std::string& path) {
        const bool yes = session.manager.isPartition(path) != 0;
        printLine((yes ? "yes " : "no ") + printableText(path));
        session.complainIfUnsure(path);
        return yes ? answeredYes : answeredNo;
    });
}

ExitStatus partition(const SessionOptions& options, const std::string& path, const std::string& number)
{
    const unsigned int wanted = partitionNumber(number);
    Session session(options, questionsIn({path}));
    return forEachPath({path}, [&](const std::string& device) {
        // Only an unclaimed path gives an empty answer.
        const std::string answer = session.manager.appendPartitionSuffix(device, wanted);
        session.complainIfUnsure(device);
        if (answer.empty()) {
            return unclaimed(device);
        }
        printLine(printableText(answer));
        return answeredYes;
    });
}

ExitStatus whole(const SessionOptions& options, const std::vector<std::string>& paths)
{
    Session session(options, questionsIn(paths));
    return forEachPath(paths, [&](const std::string& path) {
        unsigned int number = 0;
        const std::string answer = session.manager.removePartitionSuffix(path, number);
        session.complainIfUnsure(path);
        if (answer.empty()) {
            return unclaimed(path);
        }
        printLine(printableText(answer) + " " + std::to_string(number));
        return answeredYes;
    });
}

ExitStatus prefixes(const SessionOptions& options)
{
    Session session(options, Questions::one);
    for (const std::string& prefix : session.manager.getDeviceClaimStrings()) {
        printLine(printableText(prefix));
    }
    return answeredYes;
}

}  // namespace kivclaim::tools
