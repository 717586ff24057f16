// The status of a child that somebody else has collected. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_LOST_STATUS_H
#define KIVCLAIM_HOST_RUNNER_LOST_STATUS_H

#include "host/runner/file_descriptor.h"

namespace kivclaim::host_internal {

// Kernels since 6.15 keep the status for whoever holds a descriptor of the process. Fills `waitStatus` with the raw
// status; false when the kernel cannot tell it.
//
// Threads: any. Failure: none.
bool readLostStatus(const FileDescriptor& processDescriptor, int& waitStatus) noexcept;

}  // namespace kivclaim::host_internal

#endif
