// The questions about single paths, and what standard error says beside the answers.
#ifndef KIVCLAIM_TOOLS_PATH_QUESTIONS_H
#define KIVCLAIM_TOOLS_PATH_QUESTIONS_H

#include "claim/kiv_claim_query.h"
#include "tools/exit_status.h"
#include "tools/kernel_account.h"
#include "tools/session.h"
#include "tools/unsure.h"

#include <optional>
#include <string>

namespace kivclaim::tools {

// What is said beside an answer: that it is unsure, that nothing is at its path, that another name of the device gets
// another answer, and that the kernel calls a claimed device a logical volume.
//
// Threads: one. Ownership: borrows the options and the session. Failure: what the session's manager throws.
class AnswerNotes {
public:
    AnswerNotes(const SessionOptions& options, Session& session);

    // The name to ask by: the kernel's own, when that is wanted and there is a device.
    std::string nameOf(const std::string& path);

    // What makes the answer unsure, the latest of the session's.
    Doubt doubtAbout(const kivclaim::ClaimAnswer& answer);

    // Says on standard error what is to be said about the answer, whose doubt was told.
    void say(const kivclaim::ClaimAnswer& answer, const Doubt& doubt, kivclaim::ClaimFacts wanted);

private:
    void sayWhatTheNameHides(const kivclaim::ClaimAnswer& answer, kivclaim::ClaimFacts wanted);

    const SessionOptions& options;
    Session& session;
    KernelAccount kernel;
    std::optional<kivclaim::ClaimQuery> silentQuery;
};

// Asks about one path after the other, all with one list of logical volumes unless the user wants it read again each
// time.
// Threads: one. Ownership: borrows the options; owns the session. Failure: CommandError from the constructor, as
// Session.
class PathQuestions {
public:
    explicit PathQuestions(const SessionOptions& options) : options(options), session(options), notes(options, session)
    {
    }

    // Throws what a module threw, as a CommandError. The answer's path may be another name of the device; see
    // --resolve.
    kivclaim::ClaimAnswer ask(const std::string& path, kivclaim::ClaimFacts wanted);

    // To be called after the answer was printed: prints the warnings about it. `outcome`, or answeredUnsure.
    ExitStatus finish(const kivclaim::ClaimAnswer& answer, kivclaim::ClaimFacts wanted, ExitStatus outcome);

private:
    const SessionOptions& options;
    Session session;
    AnswerNotes notes;
    std::optional<kivclaim::ClaimQuery> query;
};

// Throws a CommandError for an answer in place of which a module threw an exception.
void requireAnswer(const kivclaim::ClaimAnswer& answer);

}  // namespace kivclaim::tools

#endif
