// The files of one device in sysfs. Private to machine/.
#ifndef KIVCLAIM_MACHINE_ATTRIBUTES_H
#define KIVCLAIM_MACHINE_ATTRIBUTES_H

#include "machine/file_reader.h"
#include "machine/text_pool.h"
#include "machine/tree.h"

#include <optional>
#include <string>
#include <string_view>

namespace kivclaim::machine {

// Opens the device's directory with the first file that is read.
// Threads: one. Ownership: borrows all that it is made with.
// Failure: an attribute that the device does not have is none; one that cannot be read is none and sets a mark.
class Attributes {
public:
    // `place` is the device's directory below sys/.
    Attributes(const Tree& tree, FileReader& files, TextPool& texts, std::string place, Marks& marks)
        : tree(tree), files(files), texts(texts), place(std::move(place)), marks(marks)
    {
    }

    // Without the blanks around it; valid until the next file is read.
    std::optional<std::string_view> read(const char* name);
    // The same, kept with the machine; empty when there is none.
    std::string_view text(const char* name);
    // A decimal number up to `most`.
    std::optional<std::uint64_t> number(const char* name, std::uint64_t most);
    bool flag(const char* name);
    // The last name in what a link says; valid until the next file is read.
    std::string linkTarget(const char* name);

    // Keeps a text and marks a strange one.
    std::string_view keep(std::string_view text);

    // Calls take(name) for each entry of a directory; false when there is no such directory.
    template <class Take>
    bool entries(const char* name, Take take)
    {
        const Descriptor directory = open(name, asDirectory);
        if (directory.isOpen()) {
            files.entries(directory.get(), marks, [&](std::string_view entry, unsigned char) { take(entry); });
        }
        return directory.isOpen();
    }

private:
    static const int asDirectory;

    Descriptor open(const char* name, int flags);
    int directory();

    const Tree& tree;
    FileReader& files;
    TextPool& texts;
    std::string place;
    Marks& marks;
    Descriptor opened;
    bool tried = false;
};

}  // namespace kivclaim::machine

#endif
