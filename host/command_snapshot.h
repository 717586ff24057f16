// Runs a command once for several questions.
#ifndef KIVCLAIM_HOST_COMMAND_SNAPSHOT_H
#define KIVCLAIM_HOST_COMMAND_SNAPSHOT_H

#include "framework/ztfi_export.h"

#include <memory>
#include <string>
#include <vector>

namespace kivclaim::host {

// While a snapshot is open, each of its command lines runs only once on this thread, for any caller and any runner.
// Every further Exec of exactly the same line gets the outcome of the first one: the lines of output, the result, the
// failure record or the exception, whatever its time limit. All other commands run every time. Callers of Exec need no
// change. A run that was cancelled is not remembered.
//
// Snapshots nest: when several open snapshots name a line, the innermost one is used.
//
// Threads: affects only the thread that created it. It may be destroyed at any time, also on another thread, and by a
// function that receives the records of one of its runs. Ownership: owns the outcomes and deletes them when it is
// destroyed; if another thread destroys it, they are deleted when the first thread runs its next command or ends.
// Callers get copies. Failure: only running out of memory, as std::bad_alloc; such a run is not remembered.
class ZTFI_API CommandSnapshot {
public:
    // Opens it for these command lines. Runs nothing yet.
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
