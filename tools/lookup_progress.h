// The progress of an active-path lookup, derived from the library's trace records.
#ifndef KIVCLAIM_TOOLS_LOOKUP_PROGRESS_H
#define KIVCLAIM_TOOLS_LOOKUP_PROGRESS_H

#include <chrono>
#include <mutex>
#include <string>

namespace kivclaim::tools {

// Threads: records come from the thread that looks up; any other may ask meanwhile.
// Ownership, failure: none.
class LookupProgress {
public:
    using Clock = std::chrono::steady_clock;

    enum class Step { toolSearch, nodeLookup, pathLookup, answered };

    // Takes note of one record of the lookup. True when a new attempt begins.
    bool take(const std::string& record, Clock::time_point now);

    // The step that is under way, or that gave no answer when the lookup is over.
    Step step() const;

    // What is being done, with the attempt and the rest of a pause, in one short line.
    std::string description(Clock::time_point now) const;

    // True while the library sleeps: it runs no command then.
    bool isPausing() const;

private:
    void startQuery();

    mutable std::mutex lock;
    Step current = Step::toolSearch;
    bool isRefreshing = false;
    bool hasAskedForOldNode = false;
    int attempt = 0;
    bool isNodeEmpty = false;
    bool pausing = false;
    Clock::time_point pauseEnd;
    std::string activity = "looking for the volume manager";
};

}  // namespace kivclaim::tools

#endif
