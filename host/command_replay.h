// Replays the recorded commands of another machine instead of running any here.
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
    int signal = 0;      // the one that ended it, 1 to 127; 0 when it exited
};

// While a replay is open, no command runs on this thread: every Exec, through any runner, gives the outcome that
// `recorded` returns for its command line, with the same messages as if it had run. So does CommandRunner::run; its
// command line is the words with a blank between them. A command without an outcome fails like one whose program does
// not exist. Callers of Exec need no change, and snapshots remember replayed commands like others. Of several open
// replays, the innermost is used.
//
// Threads: affects only the thread that created it. It may be destroyed on any thread, at any time. Ownership: owns
// `recorded`; if another thread destroys the replay, `recorded` is deleted when the first thread runs its next command
// or ends. Failure: Exec throws what `recorded` throws; running out of memory is std::bad_alloc.
class ZTFI_API CommandReplay {
public:
    // Returns the outcome of a command line; none for a command that was not recorded.
    using Recorded = std::function<std::optional<CommandOutcome>(const std::string& command)>;

    // Opens the replay. Does not call `recorded` yet.
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
