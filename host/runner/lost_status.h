// The status of a child that other code of the process has collected. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_LOST_STATUS_H
#define KIVCLAIM_HOST_RUNNER_LOST_STATUS_H

#include "host/runner/file_descriptor.h"

namespace kivclaim::host_internal {

// Kernels since 6.15 keep the status for the holder of a descriptor of the process (pidfd). Sets `waitStatus` to the
// raw status; false when the kernel does not have it.
//
// Threads: any. Failure: none.
bool readLostStatus(const FileDescriptor& processDescriptor, int& waitStatus) noexcept;

}  // namespace kivclaim::host_internal

#endif
