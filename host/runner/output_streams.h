// The two pipes that a command writes to. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_OUTPUT_STREAMS_H
#define KIVCLAIM_HOST_RUNNER_OUTPUT_STREAMS_H

#include "host/runner/file_descriptor.h"
#include "host/runner/line_collector.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

// How much of the end of standard error is kept.
constexpr std::size_t keptErrorBytes = 4096;

// Reads standard output into lines and keeps the end of standard error. Beyond the limits, the lines are dropped, and
// further output is read and dropped, so that the writer is not blocked while it is being ended.
//
// Threads: belongs to one thread.
// Ownership: owns the read ends; each is closed when its writers are gone. The caller owns the vector.
// Failure: RunProblem when a pipe cannot be read, std::bad_alloc.
class OutputStreams {
public:
    OutputStreams(FileDescriptor outputEnd, FileDescriptor errorEnd, std::vector<std::string>& lines,
                  std::size_t mostBytes, std::size_t mostLines);

    int outputDescriptor() const { return output.end.get(); }
    int errorDescriptor() const { return error.end.get(); }
    bool anyOpen() const { return output.end.isOpen() || error.end.isOpen(); }
    bool areOverLimit() const { return isOverLimit; }

    // Each reads once and returns the number of bytes; poll() must have reported data or a hang-up.
    std::size_t readOutput() { return takeOutput(); }
    std::size_t readError() { return takeError(); }

    // Reads the bytes that are in the pipes, even if other processes still hold them.
    void drain();

    // Makes a line of the bytes after the last line feed; it counts towards the limit.
    void finish();
    std::string errorTail() const { return tailCollector.tail(); }

private:
    struct Stream {
        FileDescriptor end;
        std::size_t byteCount = 0;
    };

    std::size_t readOnce(Stream& stream);
    std::size_t takeOutput();
    std::size_t takeError();
    void drain(const Stream& stream, std::size_t (OutputStreams::*take)());
    void noticeLimit();
    void enlargeBuffer();
    void enlargeOutputPipe();

    Stream output;
    Stream error;
    LineCollector lineCollector;
    TailCollector tailCollector;
    std::size_t byteLimit;
    std::size_t lineLimit;
    bool isOverLimit = false;
    bool isOutputPipeLarge = false;
    bool isBufferFull = false;
    std::size_t bufferBytes;
    std::unique_ptr<char[]> buffer;
};

}  // namespace kivclaim::host_internal

#endif
