// What becomes of the bytes that a command writes. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_LINE_COLLECTOR_H
#define KIVCLAIM_HOST_RUNNER_LINE_COLLECTOR_H

#include <cstddef>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

// How far a vector of lines went, and how much memory it had, before more was added.
struct LinesBefore {
    explicit LinesBefore(const std::vector<std::string>& lines) : size(lines.size()), capacity(lines.capacity()) {}

    // Takes away what was added, and gives back the memory that was needed for it.
    void restore(std::vector<std::string>& lines) const noexcept;

    std::size_t size;
    std::size_t capacity;
};

// Takes the lines of a run away again, unless it is kept: half an output must not pass for a whole one.
//
// Threads: belongs to one. Ownership: the vector is the caller's and must outlive it. Failure: none.
class LinesUntilKept {
public:
    explicit LinesUntilKept(std::vector<std::string>& target) : lines(target), before(target) {}
    LinesUntilKept(const LinesUntilKept&) = delete;
    LinesUntilKept& operator=(const LinesUntilKept&) = delete;
    ~LinesUntilKept()
    {
        if (!kept) {
            before.restore(lines);
        }
    }

    void keep() { kept = true; }

private:
    std::vector<std::string>& lines;
    LinesBefore before;
    bool kept = false;
};

// Cuts a stream of bytes at its line feeds and appends the lines to a caller's vector. Only the line feed is taken
// away: carriage returns and NUL bytes stay, and an empty line is an element.
//
// Threads: belongs to one. Ownership: the vector is the caller's and must outlive it.
// Failure: running out of memory, as std::bad_alloc; the vector then holds the lines so far.
class LineCollector {
public:
    explicit LineCollector(std::vector<std::string>& target) : lines(target), before(target) {}

    void add(const char* bytes, std::size_t count);

    // Takes away what was added.
    void drop();

    // The stream ended: what follows the last line feed is a line too, unless it is nothing.
    void finish();

    // How many lines have been added.
    std::size_t lineCount() const { return lines.size() - before.size; }

private:
    void endLine(const char* rest, std::size_t count);

    std::vector<std::string>& lines;
    LinesBefore before;
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
