#include "host/runner/line_collector.h"

#include <cstring>
#include <utility>

namespace kivclaim::host_internal {

// shrink_to_fit catches a failure of its own allocation; the vector then keeps its memory.
void LinesBefore::restore(std::vector<std::string>& lines) const noexcept
{
    lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(size), lines.end());
    if (lines.capacity() > capacity) {
        lines.shrink_to_fit();
    }
}

void LineCollector::drop()
{
    std::string().swap(unfinished);
    before.restore(lines);
}

void LineCollector::add(const char* bytes, std::size_t count)
{
    const char* const end = bytes + count;
    while (bytes != end) {
        const void* const found = std::memchr(bytes, '\n', static_cast<std::size_t>(end - bytes));
        if (found == nullptr) {
            unfinished.append(bytes, end);
            return;
        }
        const char* const lineEnd = static_cast<const char*>(found);
        endLine(bytes, static_cast<std::size_t>(lineEnd - bytes));
        bytes = lineEnd + 1;
    }
}

void LineCollector::endLine(const char* rest, std::size_t count)
{
    if (unfinished.empty()) {
        lines.emplace_back(rest, count);
        return;
    }
    unfinished.append(rest, count);
    lines.push_back(std::move(unfinished));
    unfinished.clear();
}

void LineCollector::finish()
{
    if (!unfinished.empty()) {
        endLine("", 0);
    }
}

void TailCollector::add(const char* bytes, std::size_t count)
{
    if (count > limit) {
        bytes += count - limit;
        count = limit;
    }
    bytesSoFar.append(bytes, count);
    if (bytesSoFar.size() > 2 * limit) {
        bytesSoFar.erase(0, bytesSoFar.size() - limit);
    }
}

std::string TailCollector::tail() const
{
    return bytesSoFar.size() > limit ? bytesSoFar.substr(bytesSoFar.size() - limit) : bytesSoFar;
}

}  // namespace kivclaim::host_internal
