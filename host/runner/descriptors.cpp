#include "host/runner/descriptors.h"

#include "host/runner/run_problem.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace kivclaim::host_internal {

namespace {

constexpr int firstOrdinaryDescriptor = STDERR_FILENO + 1;

}  // namespace

void raiseAboveStandardDescriptors(FileDescriptor& descriptor)
{
    if (descriptor.get() >= firstOrdinaryDescriptor) {
        return;
    }
    const int raised = ::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, firstOrdinaryDescriptor);
    if (raised < 0) {
        throw RunProblem{errno, "there is no descriptor left above the standard ones"};
    }
    descriptor.reset(raised);
}

Pipe makePipe()
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw RunProblem{errno, "there is no descriptor left for its output"};
    }
    Pipe pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
    raiseAboveStandardDescriptors(pipe.readEnd);
    raiseAboveStandardDescriptors(pipe.writeEnd);
    if (::fcntl(pipe.readEnd.get(), F_SETFL, O_RDONLY | O_NONBLOCK) != 0) {
        throw RunProblem{errno, "its output cannot be read without blocking"};
    }
    return pipe;
}

}  // namespace kivclaim::host_internal
