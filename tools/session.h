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
    std::vector<std::string> moduleFiles;  // --module: ask the modules in these files too, after the built-in ones
    std::string sysroot;                   // --sysroot: the machine recorded there; empty: this machine
    std::string sysrootDirectory;          // where the files of that machine are; empty: in `sysroot` itself
    bool resolve = false;                  // --resolve: ask by the kernel's own names of devices
    bool noWarnings = false;               // --no-warn: say nothing about unsure answers and misleading names

    // What has been read of the recorded machine already, and outlives the session; null when nothing has.
    const kivclaim::machine::Machine* known = nullptr;

    // The machine that the questions are about.
    kivclaim::machine::Root root() const;

    // The trace destinations that were asked for; none without the options. Throws CommandError for an unwritable
    // file.
    std::vector<kivclaim::host::TraceDestination> destinations() const;
};

// A new manager with a module out of each module file, which traces to `destinations`; without any, no log is
// registered and tracing costs nothing. All answers come from one look at the system, unless the user wants another one
// for each: what the library runs for them is run once. Throws CommandError for a file that gives no module, and for a
// recorded machine that cannot be read; nothing has been traced then.
//
// Threads: one, the one that made it. Ownership: borrows the options and what they call `known`; owns the managers, and
// they own their modules. Failure: besides the constructor, silentManager() throws CommandError like it.
class Session {
public:
    explicit Session(const SessionOptions& options) : Session(options, options.destinations()) {}
    Session(const SessionOptions& options, const std::vector<kivclaim::host::TraceDestination>& destinations);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The recorded machine that the questions are about; null for this one.
    PlayedMachine* played() const { return playedMachine.get(); }

    // What the recorded machine should have held for the answers since the last call, in words for after "because".
    // Empty when nothing was missing, and for this machine.
    std::string takeMissing() const { return playedMachine != nullptr ? playedMachine->takeMissing() : std::string(); }

    // Another manager with the same modules, which traces nowhere. Made by the first call.
    CKivClaimManager& silentManager();

private:
    void addModules(CKivClaimManager& to);

    // The order counts, because members are destroyed from the last to the first. A manager deletes its modules, which
    // may be the user's code: the recorded machine and the snapshot must still be there then, so both managers come
    // after them, also the public one.
    const SessionOptions& options;
    std::unique_ptr<PlayedMachine> playedMachine;
    std::optional<kivclaim::host::CommandSnapshot> snapshot;
    std::unique_ptr<CKivClaimManager> silent;

public:
    CKivClaimManager manager;
};

}  // namespace kivclaim::tools

#endif
