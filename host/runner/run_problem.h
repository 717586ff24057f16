// Why a command could not be run. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_RUN_PROBLEM_H
#define KIVCLAIM_HOST_RUNNER_RUN_PROBLEM_H

#include <string>

namespace kivclaim::host_internal {

// The wait status when no child was started, or its status is lost; real statuses are never negative.
constexpr int unknownWaitStatus = -1;

// Thrown inside the runner only; runCommand turns it into the caller's failure record.
struct RunProblem {
    int errorNumber;
    std::string reason;  // continues "Cannot run [...]: "
    int waitStatus = unknownWaitStatus;
    std::string errorTail = {};  // the end of what the command wrote to standard error
};

}  // namespace kivclaim::host_internal

#endif
