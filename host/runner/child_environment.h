// The environment that tools run in. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_CHILD_ENVIRONMENT_H
#define KIVCLAIM_HOST_RUNNER_CHILD_ENVIRONMENT_H

#include "host/runner/descriptors.h"

#include <vector>

namespace kivclaim::host_internal {

// The process's environment with LC_ALL=C and without LANGUAGE, so that no tool translates the labels that its output
// is searched for, and with LVM_SUPPRESS_FD_WARNINGS=1. Ends with a null pointer, as execve requires.
//
// Threads: any, also while another thread changes the environment. The C library has no lock for readers, so the list
// and its strings may be freed at any moment. Therefore the kernel copies them (see KernelCopy), and a string that is
// still missing after some attempts is left out. A pointer may become invalid before it is used; execve then fails with
// EFAULT.
// Ownership: the process owns the strings; the process's environment is not changed. The pipe must be empty.
// Failure: RunProblem when the pipe does not work; running out of memory, as std::bad_alloc.
std::vector<char*> childEnvironment(const Pipe& emptyPipe);

}  // namespace kivclaim::host_internal

#endif
