// The part of a check that runs code of the checked file, in the process that was started for it.
#ifndef KIVCLAIM_TOOLS_CHECK_INSIDE_H
#define KIVCLAIM_TOOLS_CHECK_INSIDE_H

#include "tools/check.h"

namespace kivclaim::tools {

// Writes a JSON object on a line for each step, before it is taken, and for each finding: the process may end anywhere.
ExitStatus checkInside(const CheckOptions& options);

}  // namespace kivclaim::tools

#endif
