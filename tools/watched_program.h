// Programs that the command starts by itself, not through the bundled host's runner.
#ifndef KIVCLAIM_TOOLS_WATCHED_PROGRAM_H
#define KIVCLAIM_TOOLS_WATCHED_PROGRAM_H

#include "tools/watch.h"

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kivclaim::tools {

struct ProgramStart {
    std::vector<std::string> words;        // the program's path and its arguments
    std::vector<std::string> environment;  // NAME=value
    // Descriptors of this process, and the numbers that they get in the program, in this order. No other reaches it
    // unless it lacks close-on-exec.
    std::vector<std::pair<int, int>> descriptors;
    std::string shownAs;  // what the user is told to wait for
    std::chrono::seconds limit{600};
};

// A program in a process group of its own, with default signal handling and an empty standard input. A signal that ends
// the command ends it and its group first, see Watch, and the kernel kills it with this process, however that ends.
// Whatever is left in its group when it has ended is killed.
//
// Threads: made and used by the main thread. Ownership: a program that still runs is killed with the object.
// Failure: std::system_error with the reason why it could not be started.
class WatchedProgram {
public:
    explicit WatchedProgram(const ProgramStart& start);
    WatchedProgram(const WatchedProgram&) = delete;
    WatchedProgram& operator=(const WatchedProgram&) = delete;
    ~WatchedProgram();

    // The status, as waitpid tells it, once it has ended. Never waits. Does not return when the command is being ended.
    std::optional<int> status();
    // Whether its limit is over.
    bool isLate() const { return std::chrono::steady_clock::now() > latestEnd; }

private:
    void endGroup();

    std::chrono::steady_clock::time_point latestEnd;
    pid_t process = -1;
    std::optional<WatchedGroup> group;
    std::optional<int> known;
};

}  // namespace kivclaim::tools

#endif
