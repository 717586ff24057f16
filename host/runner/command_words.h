// Splits a command line into words. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_COMMAND_WORDS_H
#define KIVCLAIM_HOST_RUNNER_COMMAND_WORDS_H

#include <string>
#include <vector>

namespace kivclaim::host_internal {

// The words of `command`, separated by one or more blanks (space, tab); every other byte is part of a word and has no
// special meaning. The first word is the program.
//
// Threads: any.
// Failure: RunProblem when there is no word, when the program is not named by its absolute path (a search along PATH
// or from the working directory would let the environment choose what runs), or when a word contains a NUL byte, which
// would cut it short; std::bad_alloc.
std::vector<std::string> commandWords(const std::string& command);

// The same checks for words that the caller has split. All but the first may contain blanks and may be empty.
void requireRunnable(const std::vector<std::string>& words);

}  // namespace kivclaim::host_internal

#endif
