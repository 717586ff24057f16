#include "host/runner/command_words.h"

#include "host/runner/run_problem.h"

#include <algorithm>
#include <cerrno>

namespace kivclaim::host_internal {

namespace {

constexpr char blanks[] = " \t";

}  // namespace

std::vector<std::string> commandWords(const std::string& command)
{
    std::vector<std::string> words;
    std::size_t start = command.find_first_not_of(blanks);
    while (start != std::string::npos) {
        const std::size_t end = command.find_first_of(blanks, start);
        words.push_back(command.substr(start, end - start));
        start = command.find_first_not_of(blanks, end);
    }
    requireRunnable(words);
    return words;
}

void requireRunnable(const std::vector<std::string>& words)
{
    if (words.empty()) {
        throw RunProblem{EINVAL, "it names no program"};
    }
    if (std::any_of(words.begin(), words.end(),
                    [](const auto& word) { return word.find('\0') != std::string::npos; })) {
        throw RunProblem{EINVAL, "it contains a NUL byte"};
    }
    if (words.front().empty() || words.front().front() != '/') {
        throw RunProblem{EINVAL, "the program is not named by its absolute path"};
    }
}

}  // namespace kivclaim::host_internal
