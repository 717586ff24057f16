// The environment that tools run in. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_CHILD_ENVIRONMENT_H
#define KIVCLAIM_HOST_RUNNER_CHILD_ENVIRONMENT_H

#include <vector>

namespace kivclaim::host_internal {

// The process's environment with LC_ALL=C and without LANGUAGE, so that no tool translates the labels that are looked
// for in its output, and with LVM_SUPPRESS_FD_WARNINGS=1. Ends with a null pointer, as the system wants it.
//
// Threads: any, as long as none changes the environment meanwhile: the C library has no lock that a reader could take.
// Take it just before use.
// Ownership: the texts stay the process's; the process's environment is not changed.
// Failure: only running out of memory, as std::bad_alloc.
std::vector<char*> childEnvironment();

}  // namespace kivclaim::host_internal

#endif
