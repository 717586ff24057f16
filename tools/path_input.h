// Where the command takes its paths from: its arguments, and standard input for the argument "-".
#ifndef KIVCLAIM_TOOLS_PATH_INPUT_H
#define KIVCLAIM_TOOLS_PATH_INPUT_H

#include "tools/exit_status.h"

#include <functional>
#include <string>
#include <vector>

namespace kivclaim::tools {

// Passes each path to `answer`, in order, and returns the worst outcome. Lines of standard input are answered while
// they arrive, in constant memory. An invalid path (empty, NUL byte, too long) is reported and skipped, and makes the
// outcome `failed`. Throws CommandError when standard input cannot be read.
ExitStatus forEachPath(const std::vector<std::string>& arguments,
                       const std::function<ExitStatus(const std::string& path)>& answer);

}  // namespace kivclaim::tools

#endif
