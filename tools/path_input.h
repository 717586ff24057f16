// Where the command takes its paths from: its arguments, and standard input for the argument "-".
#ifndef KIVCLAIM_TOOLS_PATH_INPUT_H
#define KIVCLAIM_TOOLS_PATH_INPUT_H

#include "tools/exit_status.h"

#include <functional>
#include <string>
#include <vector>

namespace kivclaim::tools {

// Hands each path to `answer`, in order, and returns the worst outcome. Lines of standard input are answered while
// they arrive, in constant memory. A path that can be none (empty, with a zero byte, overlong) is complained about,
// passed over, and makes the outcome `failed`. Throws CommandError when standard input cannot be read.
ExitStatus forEachPath(const std::vector<std::string>& arguments,
                       const std::function<ExitStatus(const std::string& path)>& answer);

}  // namespace kivclaim::tools

#endif
