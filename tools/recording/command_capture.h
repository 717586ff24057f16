// Runs a program for a recording: its output to the byte, and how it ended.
#ifndef KIVCLAIM_TOOLS_RECORDING_COMMAND_CAPTURE_H
#define KIVCLAIM_TOOLS_RECORDING_COMMAND_CAPTURE_H

#include <string>

namespace kivclaim::tools {

struct CapturedCommand {
    std::string output;
    std::string errors;
    std::string status;   // as tools/recorded_commands.h has it; empty when there is nothing to record
    std::string problem;  // why there is nothing
    double seconds = 0;

    bool hasSucceeded() const { return status == "0\n"; }
};

// Runs a command line, split at blanks, as the bundled host does: no shell, an absolute path, nothing translated, no
// input. One that has not ended after 600 seconds is killed. Never fails: `problem` says what went wrong.
CapturedCommand capture(const std::string& command);

}  // namespace kivclaim::tools

#endif
