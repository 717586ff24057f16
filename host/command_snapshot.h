// One look at the system for several questions.
#ifndef KIVCLAIM_HOST_COMMAND_SNAPSHOT_H
#define KIVCLAIM_HOST_COMMAND_SNAPSHOT_H

#include "framework/ztfi_export.h"

#include <memory>
#include <string>
#include <vector>

namespace kivclaim::host {

// While a snapshot is open, each of its command lines runs once on this thread, whoever asks for it through whichever
// runner; every further Exec of exactly the same line gets what the first one got: the lines of output, the result,
// the failure record or the exception, whatever its time limit. All other commands run every time. Callers of Exec need
// no change. A run that was cancelled is not remembered.
//
// Snapshots nest: a line that several open ones name belongs to the innermost of them.
//
// Threads: holds for the thread that made it; other threads are not concerned. It may be destroyed anywhere, at any
// time, also on another thread, and by a function that receives the records of a run it holds for. Ownership: owns what
// it remembers, and forgets it when it ends; what another thread ended is deleted when the thread that made it runs its
// next command, or ends. What is given again is a copy. Failure: only running out of memory, as std::bad_alloc; a run
// that ends so is not remembered.
class ZTFI_API CommandSnapshot {
public:
    // Opens it for these command lines. Nothing is run yet.
    explicit CommandSnapshot(const std::vector<std::string>& commands);
    CommandSnapshot(const CommandSnapshot&) = delete;
    CommandSnapshot& operator=(const CommandSnapshot&) = delete;
    ~CommandSnapshot();

private:
    class Scope;

    std::unique_ptr<Scope> scope;
};

}  // namespace kivclaim::host

#endif
