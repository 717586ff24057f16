// Reads memory that may not be there any more. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_KERNEL_COPY_H
#define KIVCLAIM_HOST_RUNNER_KERNEL_COPY_H

#include "host/runner/descriptors.h"

#include <sys/uio.h>

#include <cstddef>

namespace kivclaim::host_internal {

// Has the kernel copy memory of the process, by way of a pipe: it says no where a read of our own would end the
// process.
//
// Threads: belongs to one. Ownership: the pipe is the caller's; empty before and afterwards.
// Failure: memory that cannot be read is an answer; RunProblem when the pipe does not work.
class KernelCopy {
public:
    static constexpr std::size_t mostBytes = 4096;  // what the smallest pipe takes without waiting

    explicit KernelCopy(const Pipe& emptyPipe) : pipe(emptyPipe) {}

    // Copies all parts, one after the other, at most `mostBytes`. False when some byte of them cannot be read.
    bool copy(const iovec* parts, int count, void* target) const;
    bool copy(const void* source, std::size_t size, void* target) const;

private:
    void empty() const;

    const Pipe& pipe;
};

}  // namespace kivclaim::host_internal

#endif
