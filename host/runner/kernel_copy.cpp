#include "host/runner/kernel_copy.h"

#include "host/runner/run_problem.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <numeric>

namespace kivclaim::host_internal {

namespace {

std::size_t sizeOf(const iovec* parts, int count)
{
    return std::accumulate(parts, parts + count, std::size_t{0},
                           [](std::size_t sum, const iovec& part) { return sum + part.iov_len; });
}

template <class Call>
ssize_t uninterrupted(Call call)
{
    ssize_t result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

}  // namespace

bool KernelCopy::copy(const iovec* parts, int count, void* target) const
{
    const auto size = static_cast<ssize_t>(sizeOf(parts, count));
    // A direct system call, because the sanitizers' replacements of the function would read the memory themselves.
    const ssize_t written =
        uninterrupted([&] { return ::syscall(SYS_writev, static_cast<long>(pipe.writeEnd.get()), parts, count); });
    if (written < 0 && errno != EFAULT) {
        throw RunProblem{errno, "the environment cannot be read"};
    }
    if (written != size) {
        empty();
        return false;
    }
    if (uninterrupted([&] { return ::read(pipe.readEnd.get(), target, static_cast<std::size_t>(size)); }) != size) {
        throw RunProblem{EIO, "the environment cannot be read"};
    }
    return true;
}

bool KernelCopy::copy(const void* source, std::size_t size, void* target) const
{
    const iovec part{const_cast<void*>(source), size};
    return copy(&part, 1, target);
}

// A write that failed halfway may have left bytes in the pipe.
void KernelCopy::empty() const
{
    char bytes[mostBytes];
    while (uninterrupted([&] { return ::read(pipe.readEnd.get(), bytes, sizeof bytes); }) > 0) {
    }
}

}  // namespace kivclaim::host_internal
