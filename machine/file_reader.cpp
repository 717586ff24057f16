#include "machine/file_reader.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace kivclaim::machine {

namespace {

// What the kernel says when a device has gone while one of its files is open.
Marks markOf(int error)
{
    return error == ENODEV || error == ENXIO || error == ENOENT ? vanished : unreadable;
}

}  // namespace

std::string_view FileReader::content(int file, std::size_t longest, Marks& marks)
{
    std::size_t size = 0;
    for (;;) {
        const std::size_t wanted = std::min(buffer.size(), longest + 1) - size;
        const ssize_t count = ::read(file, buffer.data() + size, wanted);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            marks |= markOf(errno);
            return {};
        }
        size += static_cast<std::size_t>(count);
        if (size > longest) {
            marks |= tooLarge;
            return {};
        }
        // An attribute comes in one piece: less than what was asked for is all.
        if (count == 0 || (longest <= longestAttribute && static_cast<std::size_t>(count) < wanted)) {
            return {buffer.data(), size};
        }
        if (size == buffer.size()) {
            buffer.resize(std::min(2 * buffer.size(), longestFile + 1));
        }
    }
}

long FileReader::nextEntries(int directory, Marks& marks)
{
    const ssize_t size = ::getdents64(directory, block.data(), block.size());
    if (size < 0) {
        marks |= markOf(errno);
    }
    return size;
}

FileReader::Entry FileReader::entryAt(long place) const
{
    const auto* const entry = reinterpret_cast<const dirent64*>(block.data() + place);
    return {entry->d_name, entry->d_type, entry->d_reclen};
}

}  // namespace kivclaim::machine
