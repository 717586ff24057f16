// Reads small files whole, and directories entry by entry. Private to machine/.
#ifndef KIVCLAIM_MACHINE_FILE_READER_H
#define KIVCLAIM_MACHINE_FILE_READER_H

#include "machine/machine.h"

#include <string>
#include <string_view>
#include <vector>

namespace kivclaim::machine {

// The longest attribute that the kernel writes is a page; other files are given up beyond 16 MiB.
constexpr std::size_t longestAttribute = 4096;
constexpr std::size_t longestFile = 16UL * 1024 * 1024;

// Threads: one at a time. Ownership: a text that it returns is valid until the next call.
// Failure: what cannot be read is empty, and its mark is set.
class FileReader {
public:
    // The content up to `longest` bytes; a longer one counts as empty.
    std::string_view content(int file, std::size_t longest, Marks& marks);

    // Calls take(name, type) for each entry but "." and ".."; `type` is DT_LNK and the like. The directory must have
    // been opened for reading, and `take` must not read another one.
    template <class Take>
    void entries(int directory, Marks& marks, Take take)
    {
        for (long size = 0; (size = nextEntries(directory, marks)) > 0;) {
            for (long place = 0; place < size;) {
                const Entry entry = entryAt(place);
                place += entry.size;
                if (entry.name != "." && entry.name != "..") {
                    take(entry.name, entry.type);
                }
            }
        }
    }

private:
    struct Entry {
        std::string_view name;
        unsigned char type;
        long size;
    };

    static constexpr std::size_t directoryBlock = 32UL * 1024;

    long nextEntries(int directory, Marks& marks);
    Entry entryAt(long place) const;

    std::vector<char> buffer = std::vector<char>(longestAttribute + 1);
    std::vector<char> block = std::vector<char>(directoryBlock);
};

}  // namespace kivclaim::machine

#endif
