// The claim manager that the command asks, with the trace log that the user asked for.
#ifndef KIVCLAIM_TOOLS_SESSION_H
#define KIVCLAIM_TOOLS_SESSION_H

#include "claim/kiv_claim_manager.h"
#include "host/command_snapshot.h"
#include "host/trace_log.h"
#include "machine/machine.h"
#include "tools/played_machine.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kivclaim::tools {

// The options that every command has.
struct SessionOptions {
    std::optional<int> traceLevel;         // --trace: show the records up to this level on standard error
    std::string traceFile;                 // --trace-file: keep them in this file; all of them when no level is given
    bool noSnapshot = false;               // --no-snapshot: run the same command again for every question
    std::vector<std::string> moduleFiles;  // --module: ask the modules in these files too, behind the built-in ones
    std::string sysroot;                   // --sysroot: the machine recorded there; empty: this machine
    std::string sysrootDirectory;          // where the files of that machine are; empty: in `sysroot` itself

    // The machine that the questions are about.
    kivclaim::machine::Root root() const;

    // The trace destinations that were asked for; none without the options. Throws CommandError for an unwritable
    // file.
    std::vector<kivclaim::host::TraceDestination> destinations() const;
};

// How many questions a session is for. The answers to many come from one look at the system: what the library runs
// for each of them is run once.
enum class Questions { one, many };

// A new manager with a module out of each module file, which traces to `destinations`; without any, no log is
// registered and tracing costs nothing. Throws CommandError for a file that gives no module, and for a recorded machine
// that cannot be read; nothing has been traced then.
class Session {
public:
    Session(const SessionOptions& options, Questions questions) : Session(options, questions, options.destinations()) {}
    Session(const SessionOptions& options, Questions questions,
            const std::vector<kivclaim::host::TraceDestination>& destinations);

    // The recorded machine that the questions are about; null for this one.
    PlayedMachine* played() const { return playedMachine.get(); }

    // Why the answers since the last call are unsure, in words for after "because": what the recorded machine should
    // have held for them. Empty for sure ones, as all are about this machine.
    std::string whyUnsure() const { return playedMachine != nullptr ? playedMachine->takeMissing() : std::string(); }

    // Says so in a line on standard error, if it is so for what was just answered about `path`.
    void complainIfUnsure(const std::string& path) const;

private:
    std::unique_ptr<PlayedMachine> playedMachine;
    std::optional<kivclaim::host::CommandSnapshot> snapshot;

public:
    CKivClaimManager manager;
};

}  // namespace kivclaim::tools

#endif
