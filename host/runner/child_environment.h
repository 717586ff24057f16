// The environment that tools run in. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_CHILD_ENVIRONMENT_H
#define KIVCLAIM_HOST_RUNNER_CHILD_ENVIRONMENT_H

#include "host/runner/descriptors.h"

#include <vector>

namespace kivclaim::host_internal {

// The process's environment with LC_ALL=C and without LANGUAGE, so that no tool translates the labels that are looked
// for in its output, and with LVM_SUPPRESS_FD_WARNINGS=1. Ends with a null pointer, as the system wants it.
//
// Threads: any, also while another one changes the environment. The C library has no lock that a reader could take, so
// the list and its texts may be freed at any moment: the kernel reads them for us, and what is gone is left out when it
// is still gone after some attempts. The pointers may be gone when they are used; execve says so, as EFAULT.
// Ownership: the texts stay the process's; the process's environment is not changed. The pipe must be empty.
// Failure: RunProblem when the pipe does not work; running out of memory, as std::bad_alloc.
std::vector<char*> childEnvironment(const Pipe& emptyPipe);

}  // namespace kivclaim::host_internal

#endif
