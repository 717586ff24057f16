#include "host/runner/descriptors.h"

#include "host/runner/run_problem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>

namespace kivclaim::host_internal {

namespace {

constexpr int firstOrdinaryDescriptor = STDERR_FILENO + 1;

bool isNullDevice(const FileDescriptor& descriptor)
{
    constexpr unsigned int memoryDevices = 1;
    constexpr unsigned int nullDevice = 3;
    struct stat file {};
    return ::fstat(descriptor.get(), &file) == 0 && S_ISCHR(file.st_mode) &&
           file.st_rdev == makedev(memoryDevices, nullDevice);
}

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

// Opened without waiting, in case it is a FIFO; the tool gets it as it would have opened it itself.
FileDescriptor openNullDevice()
{
    FileDescriptor descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!descriptor.isOpen()) {
        throw RunProblem{errno, "its standard input, /dev/null, cannot be opened"};
    }
    if (!isNullDevice(descriptor)) {
        throw RunProblem{ENODEV, "its standard input, /dev/null, is not the null device"};
    }
    raiseAboveStandardDescriptors(descriptor);
    return descriptor;
}

}  // namespace kivclaim::host_internal
