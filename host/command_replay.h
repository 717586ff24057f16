// Another machine's commands: what they gave there, in the place of running anything here.
#ifndef KIVCLAIM_HOST_COMMAND_REPLAY_H
#define KIVCLAIM_HOST_COMMAND_REPLAY_H

#include "framework/ztfi_export.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kivclaim::host {

// How a run ended, and what it wrote.
struct CommandOutcome {
    std::string output;  // the bytes of standard output
    std::string errors;  // and of standard error
    int exitStatus = 0;  // 0 to 255
    int signal = 0;      // that ended it, 1 to 127; 0 when it exited
};

// While a replay is open, no command runs on this thread: every Exec, through whichever runner, gives the outcome that
// `recorded` returns for its command line, in the same words as if it had run. So does CommandRunner::run; its command
// line is the words with a blank between them. A command without an outcome fails like one whose program is not there.
// Callers of Exec need no change, and snapshots remember replayed commands like any others. The innermost of several
// open replays answers.
//
// Threads: holds for the thread that made it; other threads are not concerned. It may be destroyed anywhere, at any
// time. Ownership: owns `recorded`; what another thread ended is deleted when the thread that made it runs its next
// command, or ends. Failure: what `recorded` throws, Exec throws; running out of memory is std::bad_alloc.
class ZTFI_API CommandReplay {
public:
    // Gives the outcome of a command line; none for a command that was not recorded.
    using Recorded = std::function<std::optional<CommandOutcome>(const std::string& command)>;

    // Opens the replay. Nothing is asked yet.
    explicit CommandReplay(Recorded recorded);
    CommandReplay(const CommandReplay&) = delete;
    CommandReplay& operator=(const CommandReplay&) = delete;
    ~CommandReplay();

private:
    class Scope;

    std::unique_ptr<Scope> scope;
};

}  // namespace kivclaim::host

#endif
