// The commands that pass one question to the claim manager and print its answer.
#include "host/printable_text.h"
#include "tools/commands.h"
#include "tools/output.h"
#include "tools/path_input.h"
#include "tools/path_questions.h"

#include <charconv>

using kivclaim::host::printableText;

namespace kivclaim::tools {

namespace {

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
    PathQuestions questions(options);
    return forEachPath(paths, [&](const std::string& path) {
        const ClaimAnswer answer = questions.ask(path, ClaimFacts::claimOnly);
        printLine(std::to_string(answer.level()) + " " + answer.stack() + " " + printableText(answer.path()));
        return questions.finish(answer, ClaimFacts::claimOnly, answer.level() != 0 ? answeredYes : answeredNo);
    });
}

ExitStatus isPartition(const SessionOptions& options, const std::vector<std::string>& paths)
{
    PathQuestions questions(options);
    return forEachPath(paths, [&](const std::string& path) {
        const ClaimAnswer answer = questions.ask(path, ClaimFacts::isPartition);
        printLine((answer.isPartition() ? "yes " : "no ") + printableText(answer.path()));
        return questions.finish(answer, ClaimFacts::isPartition, answer.isPartition() ? answeredYes : answeredNo);
    });
}

ExitStatus partition(const SessionOptions& options, const std::string& path, const std::string& number)
{
    const unsigned int wanted = partitionNumber(number);
    PathQuestions questions(options);
    return forEachPath({path}, [&](const std::string& device) {
        const ClaimAnswer answer = questions.ask(device, ClaimFacts::claimOnly);
        ExitStatus outcome = answeredYes;
        if (answer.module() == nullptr) {
            outcome = unclaimed(answer.path());
        } else {
            printLine(printableText(answer.module()->appendPartitionSuffix(answer.path(), wanted)));
        }
        return questions.finish(answer, ClaimFacts::claimOnly, outcome);
    });
}

ExitStatus whole(const SessionOptions& options, const std::vector<std::string>& paths)
{
    PathQuestions questions(options);
    return forEachPath(paths, [&](const std::string& path) {
        const ClaimAnswer answer = questions.ask(path, ClaimFacts::wholeDevice);
        ExitStatus outcome = answeredYes;
        if (answer.wholeDevice().empty()) {  // only an unclaimed path gives an empty answer
            outcome = unclaimed(answer.path());
        } else {
            printLine(printableText(answer.wholeDevice()) + " " + std::to_string(answer.number()));
        }
        return questions.finish(answer, ClaimFacts::wholeDevice, outcome);
    });
}

ExitStatus prefixes(const SessionOptions& options)
{
    Session session(options);
    for (const std::string& prefix : session.manager.getDeviceClaimStrings()) {
        printLine(printableText(prefix));
    }
    return answeredYes;
}

}  // namespace kivclaim::tools
