// Why a path is claimed as it is: what each module answered, and what the library recorded meanwhile.
#include "host/printable_text.h"
#include "tools/commands.h"
#include "tools/output.h"
#include "tools/path_input.h"
#include "tools/path_questions.h"
#include "tools/stack_name.h"

#include <algorithm>

using kivclaim::host::printableText;

namespace kivclaim::tools {

namespace {

struct ModuleAnswer {
    const CKivDeviceClaimBase* module;
    unsigned int level;
};

std::vector<ModuleAnswer> askEachModule(const CKivClaimManager& manager, const std::string& path)
{
    std::vector<ModuleAnswer> answers;
    for (CKivDeviceClaimBase* const module : manager.claimModules()) {
        answers.push_back({module, module->claim(path)});
    }
    return answers;
}

// Why the first answer of `level` wins among `answers`.
std::string reason(const std::vector<ModuleAnswer>& answers, unsigned int level, bool isListMissing)
{
    if (isListMissing) {
        return "the listing of logical volumes failed, so a volume would be claimed too";
    }
    const auto claims = [](const ModuleAnswer& answer) { return answer.level != 0; };
    const auto ties = [&](const ModuleAnswer& answer) { return answer.level == level; };
    if (std::count_if(answers.begin(), answers.end(), claims) == 1) {
        return "the only module that claims it";
    }
    if (std::count_if(answers.begin(), answers.end(), ties) > 1) {
        return "a tie: of the modules with the highest level, the one asked first";
    }
    return "the strongest claim";
}

void printAnswers(const std::vector<ModuleAnswer>& answers)
{
    printLine("Modules, in the order in which they are asked:");
    std::size_t place = 0;
    for (const ModuleAnswer& answer : answers) {
        const std::string stack = stackName(answer.module);
        const std::string name = className(*answer.module);
        printLine("  " + std::to_string(++place) + ". " + name + (stack != name ? " (" + stack + ")" : "") +
                  " answers " + std::to_string(answer.level) + (answer.level == 0 ? ", not claimed" : ""));
    }
}

void printOutcome(const std::vector<ModuleAnswer>& answers, unsigned int level, bool isListMissing)
{
    const auto winner = std::find_if(answers.begin(), answers.end(),
                                     [&](const ModuleAnswer& answer) { return level != 0 && answer.level == level; });
    if (winner == answers.end()) {
        printLine("Claimed by none, level 0.");
    } else {
        printLine("Claimed by " + stackName(winner->module) + ", level " + std::to_string(level) + ": " +
                  reason(answers, level, isListMissing) + ".");
    }
}

void printRecords(const std::vector<std::string>& records)
{
    printLine("Records of the request, each behind its level:");
    for (const std::string& record : records) {
        printLine("  " + record);
    }
}

ExitStatus explainPath(const SessionOptions& options, const std::string& given)
{
    std::vector<std::string> records;
    std::vector<kivclaim::host::TraceDestination> destinations = options.destinations();
    destinations.push_back(
        kivclaim::host::traceToFunction(ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_DETAIL, [&](int level, const std::string& text) {
            records.push_back(std::to_string(level) + " " + printableText(text));
        }));
    Session session(options, destinations);
    AnswerNotes notes(options, session);
    const std::string path = notes.nameOf(given);
    const unsigned int level = session.manager.claim(path);
    // What follows comes from a manager without a log, so that the records are those of the request alone.
    const ClaimAnswer answer = ClaimQuery(session.silentManager()).ask(path, ClaimFacts::claimOnly);
    requireAnswer(answer);
    const Doubt doubt = notes.doubtAbout(answer);
    const std::vector<ModuleAnswer> answers = askEachModule(session.silentManager(), path);
    printLine(printableText(path));
    printAnswers(answers);
    printOutcome(answers, level, doubt.isThere());
    printRecords(records);
    notes.say(answer, doubt, ClaimFacts::claimOnly);
    return doubt.isThere() ? answeredUnsure : level != 0 ? answeredYes : answeredNo;
}

}  // namespace

ExitStatus explain(const SessionOptions& options, const std::string& path)
{
    return forEachPath({path}, [&](const std::string& each) { return explainPath(options, each); });
}

}  // namespace kivclaim::tools
