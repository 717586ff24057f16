// The host's command runner and the C library's calls as a fuzzer plays them: commands print what it makes up, no
// program is run, no node is opened and no pause is made.
#ifndef KIVCLAIM_FUZZ_SCRIPTED_RUNNER_H
#define KIVCLAIM_FUZZ_SCRIPTED_RUNNER_H

#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

// What every command prints and answers from now on; counts the commands anew.
void commandsPrint(std::vector<std::string> lines, int result);

// How many commands were run since.
int commandsRun();

std::vector<std::string> linesOf(std::string_view text);

// Ends the fuzzer with a report when `holds` is false.
void check(bool holds, const char* what);

}  // namespace fuzz

#endif
