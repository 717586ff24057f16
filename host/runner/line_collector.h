// What becomes of the bytes that a command writes. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_LINE_COLLECTOR_H
#define KIVCLAIM_HOST_RUNNER_LINE_COLLECTOR_H

#include <cstddef>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

// Cuts a stream of bytes at its line feeds and appends the lines to a caller's vector. Only the line feed is taken
// away: carriage returns and NUL bytes stay, and an empty line is an element.
//
// Threads: belongs to one. Ownership: the vector is the caller's and must outlive it.
// Failure: running out of memory, as std::bad_alloc; the vector then holds the lines so far.
class LineCollector {
public:
    explicit LineCollector(std::vector<std::string>& target) : lines(target), linesBefore(target.size()) {}

    void add(const char* bytes, std::size_t count);

    // The stream ended: what follows the last line feed is a line too, unless it is nothing.
    void finish();

    // How many lines have been added.
    std::size_t lineCount() const { return lines.size() - linesBefore; }

private:
    void endLine(const char* rest, std::size_t count);

    std::vector<std::string>& lines;
    std::size_t linesBefore;
    std::string unfinished;
};

// Keeps the last bytes of a stream.
//
// Threads: belongs to one. Failure: running out of memory, as std::bad_alloc.
class TailCollector {
public:
    explicit TailCollector(std::size_t keptBytes) : limit(keptBytes) {}

    void add(const char* bytes, std::size_t count);
    std::string tail() const;

private:
    std::size_t limit;
    std::string bytesSoFar;  // up to twice the limit, so that not every addition moves everything
};

}  // namespace kivclaim::host_internal

#endif
