#include "tools/path_questions.h"

#include "tools/output.h"
#include "tools/stack_table.h"

namespace kivclaim::tools {

namespace {

bool isSameAnswer(const ClaimAnswer& one, const ClaimAnswer& other)
{
    return one.level() == other.level() && one.stack() == other.stack() && one.isPartition() == other.isPartition() &&
           one.number() == other.number();
}

std::string textOf(const ClaimAnswer& answer, ClaimFacts wanted)
{
    std::string claim = std::to_string(answer.level()) + " " + answer.stack();
    switch (wanted) {
        case ClaimFacts::isPartition:
            return std::string(answer.isPartition() ? "yes" : "no") + " (" + claim + ")";
        case ClaimFacts::wholeDevice:
            return answer.wholeDevice() + " " + std::to_string(answer.number()) + " (" + claim + ")";
        default:
            return claim;
    }
}

}  // namespace

void requireAnswer(const ClaimAnswer& answer)
{
    if (answer.basis() != ClaimBasis::threw) {
        return;
    }
    throw CommandError(!answer.message().empty() ? answer.message()
                                                 : "a claim module threw an unknown exception; leave out --module to "
                                                   "ask the built-in ones alone");
}

AnswerNotes::AnswerNotes(const SessionOptions& options, Session& session)
    : options(options), session(session), kernel(session)
{
}

std::string AnswerNotes::nameOf(const std::string& path)
{
    kernel.forgetEarlier();
    const std::string name = options.resolve && !kernel.isNothingAt(path) ? kernel.at(path).path() : "";
    return name.empty() ? path : name;
}

Doubt AnswerNotes::doubtAbout(const ClaimAnswer& answer)
{
    Doubt doubt = tools::doubtAbout(answer, session);
    const bool mayBeNone = doubt.isThere() && answer.isUnsure();
    if (mayBeNone && kernel.at(answer.path()).exists() &&
        isWithoutVolumes(answer.listing(), kernel.machine(), session)) {
        return {};
    }
    return doubt;
}

void AnswerNotes::say(const ClaimAnswer& answer, const Doubt& doubt, ClaimFacts wanted)
{
    if (options.noWarnings) {
        return;
    }
    if (doubt.isThere()) {
        complain("the answer about " + answer.path() + " is unsure, because " + doubt.text());
    }
    if (kernel.isNothingAt(answer.path())) {
        complain(answer.path() + ": no such device; the name alone decides");
        return;
    }
    sayWhatTheNameHides(answer, wanted);
}

void AnswerNotes::sayWhatTheNameHides(const ClaimAnswer& answer, ClaimFacts wanted)
{
    const KernelTruth truth = kernel.at(answer.path());
    if (truth.isLogicalVolume() && answer.stack() == deviceMapperStack.name) {
        complain("the kernel calls " + answer.path() +
                 " a logical volume; 'kivclaim audit' tells why the library claims it");
    }
    if (!truth.exists() || truth.path() == answer.path()) {
        return;
    }
    if (!silentQuery || options.noSnapshot) {
        silentQuery.emplace(session.silentManager());
    }
    const ClaimAnswer other = silentQuery->ask(truth.path(), wanted);
    static_cast<void>(session.takeMissing());
    if (other.isAnswered() && !isSameAnswer(answer, other)) {
        complain(answer.path() + " is " + truth.path() + ", which gets the answer " + textOf(other, wanted) +
                 "; --resolve asks by that name");
    }
}

ClaimAnswer PathQuestions::ask(const std::string& path, ClaimFacts wanted)
{
    if (!query || options.noSnapshot) {
        query.emplace(session.manager);
    }
    ClaimAnswer answer = query->ask(notes.nameOf(path), wanted);
    requireAnswer(answer);
    return answer;
}

ExitStatus PathQuestions::finish(const ClaimAnswer& answer, ClaimFacts wanted, ExitStatus outcome)
{
    const Doubt doubt = notes.doubtAbout(answer);
    notes.say(answer, doubt, wanted);
    return doubt.isThere() ? worse(outcome, answeredUnsure) : outcome;
}

}  // namespace kivclaim::tools
