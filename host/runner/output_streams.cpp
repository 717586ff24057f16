#include "host/runner/output_streams.h"

#include "host/runner/run_problem.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace kivclaim::host_internal {

namespace {

constexpr std::size_t smallBufferBytes = std::size_t{4} << 10;
constexpr std::size_t largeBufferBytes = std::size_t{256} << 10;  // after the first read filled the small one
constexpr std::size_t largePipeBytes = std::size_t{1} << 20;
// A single read of this size indicates a large output.
constexpr std::size_t largeRead = std::size_t{32} << 10;

std::size_t bytesInPipe(const FileDescriptor& end)
{
    int count = 0;
    return end.isOpen() && ::ioctl(end.get(), FIONREAD, &count) == 0 ? static_cast<std::size_t>(count) : 0;
}

}  // namespace

OutputStreams::OutputStreams(FileDescriptor outputEnd, FileDescriptor errorEnd, std::vector<std::string>& lines,
                             std::size_t mostBytes, std::size_t mostLines)
    : output{std::move(outputEnd)},
      error{std::move(errorEnd)},
      lineCollector(lines),
      tailCollector(keptErrorBytes),
      byteLimit(mostBytes),
      lineLimit(mostLines),
      bufferBytes(smallBufferBytes),
      buffer(new char[bufferBytes])
{
}

// Returns the number of bytes, 0 when there is nothing (more) to read.
std::size_t OutputStreams::readOnce(Stream& stream)
{
    ssize_t count;
    do {
        count = ::read(stream.end.get(), buffer.get(), bufferBytes);
    } while (count < 0 && errno == EINTR);
    if (count > 0) {
        isBufferFull = static_cast<std::size_t>(count) == bufferBytes;
        stream.byteCount += static_cast<std::size_t>(count);
        return static_cast<std::size_t>(count);
    }
    if (count == 0) {
        stream.end.reset();
    } else if (errno != EAGAIN) {
        throw RunProblem{errno, "its output cannot be read"};
    }
    return 0;
}

void OutputStreams::enlargeBuffer()
{
    if (isBufferFull && bufferBytes < largeBufferBytes) {
        buffer.reset(new char[largeBufferBytes]);
        bufferBytes = largeBufferBytes;
    }
}

std::size_t OutputStreams::takeOutput()
{
    enlargeBuffer();
    const std::size_t count = readOnce(output);
    if (!isOverLimit) {
        lineCollector.add(buffer.get(), count);
    }
    noticeLimit();
    if (count >= largeRead && !isOutputPipeLarge) {
        enlargeOutputPipe();
    }
    return count;
}

std::size_t OutputStreams::takeError()
{
    enlargeBuffer();
    const std::size_t count = readOnce(error);
    tailCollector.add(buffer.get(), count);
    noticeLimit();
    return count;
}

// Frees the memory of dropped lines at once: ending the writer may take seconds.
void OutputStreams::noticeLimit()
{
    if (!isOverLimit &&
        (output.byteCount > byteLimit || error.byteCount > byteLimit || lineCollector.lineCount() > lineLimit)) {
        isOverLimit = true;
        lineCollector.drop();
    }
}

// Only for large outputs: it does not pay for small ones, and the kernel limits each user's total size of pipes. When
// the kernel refuses, the pipe is only slower.
void OutputStreams::enlargeOutputPipe()
{
    isOutputPipeLarge = true;
    (void)::fcntl(output.end.get(), F_SETPIPE_SZ, static_cast<int>(largePipeBytes));
}

// Reads only the number of bytes that are there at the beginning: a writer that never stops must not hold the reader.
// There may be fewer than the kernel reported, because other processes can read from a pipe too.
void OutputStreams::drain(const Stream& stream, std::size_t (OutputStreams::*take)())
{
    std::size_t left = bytesInPipe(stream.end);
    while (left > 0) {
        const std::size_t count = (this->*take)();
        left = count == 0 ? 0 : left - std::min(left, count);
    }
}

void OutputStreams::drain()
{
    drain(output, &OutputStreams::takeOutput);
    drain(error, &OutputStreams::takeError);
}

void OutputStreams::finish()
{
    if (!isOverLimit) {
        lineCollector.finish();
    }
    noticeLimit();
}

}  // namespace kivclaim::host_internal
