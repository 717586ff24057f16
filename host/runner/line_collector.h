// Turns the bytes that a command writes into lines. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_LINE_COLLECTOR_H
#define KIVCLAIM_HOST_RUNNER_LINE_COLLECTOR_H

#include <cstddef>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

// The size and capacity of a vector of lines before lines were added.
struct LinesBefore {
    explicit LinesBefore(const std::vector<std::string>& lines) : size(lines.size()), capacity(lines.capacity()) {}

    // Removes the added lines, and frees the memory that they needed.
    void restore(std::vector<std::string>& lines) const noexcept;

    std::size_t size;
    std::size_t capacity;
};

// Removes the lines of a run again unless `keep` is called: a partial output must not pass for a complete one.
//
// Threads: belongs to one thread. Ownership: the caller owns the vector, which must outlive it. Failure: none.
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

// Splits a stream of bytes at its line feeds and appends the lines to a caller's vector. Only the line feed is removed:
// carriage returns and NUL bytes stay, and an empty line is an element.
//
// Threads: belongs to one thread. Ownership: the caller owns the vector, which must outlive it.
// Failure: running out of memory, as std::bad_alloc; the vector then holds the lines so far.
class LineCollector {
public:
    explicit LineCollector(std::vector<std::string>& target) : lines(target), before(target) {}

    void add(const char* bytes, std::size_t count);

    // Removes the added lines.
    void drop();

    // The stream ended: if there are bytes after the last line feed, they are a line too.
    void finish();

    // The number of added lines.
    std::size_t lineCount() const { return lines.size() - before.size; }

private:
    void endLine(const char* rest, std::size_t count);

    std::vector<std::string>& lines;
    LinesBefore before;
    std::string unfinished;
};

// Keeps the last bytes of a stream.
//
// Threads: belongs to one thread. Failure: running out of memory, as std::bad_alloc.
class TailCollector {
public:
    explicit TailCollector(std::size_t keptBytes) : limit(keptBytes) {}

    void add(const char* bytes, std::size_t count);
    std::string tail() const;

private:
    std::size_t limit;
    std::string bytesSoFar;  // up to twice the limit, so that not every addition moves all bytes
};

}  // namespace kivclaim::host_internal

#endif
