// Takes a command line apart. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_COMMAND_WORDS_H
#define KIVCLAIM_HOST_RUNNER_COMMAND_WORDS_H

#include <string>
#include <vector>

namespace kivclaim::host_internal {

// The words of `command` between runs of blanks (space, tab); every other byte is part of a word and means nothing.
// The first one is the program.
//
// Threads: any.
// Failure: RunProblem when there is no word, when the program is not named by its absolute path (a search along PATH
// or from the working directory would let the environment choose what runs), or when a NUL byte would cut a word
// short on its way to the tool; std::bad_alloc.
std::vector<std::string> commandWords(const std::string& command);

// The same checks for words that somebody else took apart; they may hold blanks and may be empty, but for the first.
void requireRunnable(const std::vector<std::string>& words);

}  // namespace kivclaim::host_internal

#endif
