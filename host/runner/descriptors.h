// The descriptors of a run. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_DESCRIPTORS_H
#define KIVCLAIM_HOST_RUNNER_DESCRIPTORS_H

#include "host/runner/file_descriptor.h"

namespace kivclaim::host_internal {

// A pipe whose ends are closed on exec; the read end does not block.
struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

// All descriptors are above the three standard ones, also when the process runs with some of those closed. Otherwise
// the child's standard descriptors would overwrite them, and another thread that prints would write into them.
//
// Failure: RunProblem when there are no descriptors left.
Pipe makePipe();
void raiseAboveStandardDescriptors(FileDescriptor& descriptor);

}  // namespace kivclaim::host_internal

#endif
