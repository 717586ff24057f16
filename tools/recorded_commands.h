// The outcomes of commands on a recorded machine.
//
// The outcome of a command line is in the directory that the line itself names below kivclaim/commands in the root:
// that of "/sbin/lvdisplay" is in kivclaim/commands/sbin/lvdisplay. It has up to three files:
//
//   output   what the command wrote to standard output, to the byte. Without this file it was not recorded.
//   errors   what it wrote to standard error; may be missing when that was nothing.
//   status   one line, how it ended: its exit status from 0 to 255, or "signal" and a number from 1 to 127. May be
//            missing when it was 0. Without an output, "missing" says that there was no such program.
#ifndef KIVCLAIM_TOOLS_RECORDED_COMMANDS_H
#define KIVCLAIM_TOOLS_RECORDED_COMMANDS_H

#include "host/command_replay.h"
#include "machine/recorded_files.h"

#include <optional>
#include <string>

namespace kivclaim::tools {

// Where the output of `command` is, or would be, below the root.
std::string placeOfOutput(const std::string& command);

// Where one of the three is.
std::string placeOfCommand(const std::string& command, const char* file);

// The line in `status` for a program that is not there.
constexpr char missingProgram[] = "missing\n";

// Whether the recording says that the program was not there.
bool wasMissing(const kivclaim::machine::RecordedFiles& files, const std::string& command);

// Nothing for a command that was not recorded. Throws machine::ReadError, which names the file, when one of the three
// cannot be read or `status` says nothing of the above.
std::optional<kivclaim::host::CommandOutcome> recordedOutcome(const kivclaim::machine::RecordedFiles& files,
                                                              const std::string& command);

}  // namespace kivclaim::tools

#endif
