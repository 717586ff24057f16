// Reads memory that may have been unmapped. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_KERNEL_COPY_H
#define KIVCLAIM_HOST_RUNNER_KERNEL_COPY_H

#include "host/runner/descriptors.h"

#include <sys/uio.h>

#include <cstddef>

namespace kivclaim::host_internal {

// Has the kernel copy memory of the process through a pipe: the kernel reports an error where a direct access would end
// the process.
//
// Threads: belongs to one thread. Ownership: the caller owns the pipe, which is empty before and afterwards.
// Failure: unreadable memory is part of the result; RunProblem when the pipe does not work.
class KernelCopy {
public:
    static constexpr std::size_t mostBytes = 4096;  // the smallest pipe takes as many without blocking

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
