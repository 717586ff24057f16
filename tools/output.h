// Standard output and standard error of the command.
#ifndef KIVCLAIM_TOOLS_OUTPUT_H
#define KIVCLAIM_TOOLS_OUTPUT_H

#include <string>
#include <string_view>

namespace kivclaim::tools {

// Writes one line to standard output. Foreign texts in it must have been made printable. Failing to write ends the
// command with a CommandError.
void printLine(std::string_view line);

// Flushes standard output.
void flushOutput();

// Writes one line to standard error, after the name of the command. Control characters in it are made printable.
void complain(const std::string& text);

}  // namespace kivclaim::tools

#endif
