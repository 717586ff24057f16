// Opens files below the root of a machine, and none elsewhere. Private to machine/.
#ifndef KIVCLAIM_MACHINE_TREE_H
#define KIVCLAIM_MACHINE_TREE_H

#include "machine/descriptor.h"
#include "machine/machine.h"

#include <functional>
#include <optional>
#include <string>

namespace kivclaim::machine {

enum class Top { sys, dev, proc, udevData };

// Where a path leads to within a root.
struct Destination {
    std::string path;     // without links; absolute, where the root is "/"
    Descriptor file;      // O_PATH; not open when nothing is there
    bool circle = false;  // more links than the kernel would follow
};

// Threads: any, because it never changes; one only when it has a witness.
// Ownership: owns its open directories; a returned descriptor belongs to the caller.
// Failure: the constructor throws ReadError; opening fails like open(), with errno.
class Tree {
public:
    // Told of what is asked for below the root: "sys/class/block/sda/size". `isListing` when all entries are.
    using Witness = std::function<void(const std::string& path, bool isListing)>;
    // Told of a link on the way, and where it leads: "sys/class/block/sda", "../../devices/...".
    using OnLink = std::function<void(const std::string& path, const std::string& target)>;

    // `kernelConfines` is false only in tests, to behave as on kernels and in containers without openat2.
    explicit Tree(const Root& where, bool kernelConfines = true);

    // Opens `name` below one of the four directories. "" is the directory itself.
    Descriptor open(Top top, const std::string& name, int flags) const;

    // Opens `name`, which has no "..", below a directory of this tree, or fails with ELOOP, EXDEV or EAGAIN where
    // links would have to be followed within the root: then it must be opened from the top.
    Descriptor openBelow(int directory, const char* name, int flags) const;

    // Where `path` leads to, with the directory as the root of all absolute links. For recorded roots.
    Destination follow(const std::string& path, const OnLink& onLink = {}) const;

    // Opens the file that `path` leads to within a recorded root.
    Descriptor openAnywhere(const std::string& path, int flags) const;

    bool isLive() const { return live; }

    // For code that opens a name below one of the four directories without open().
    void note(Top top, const std::string& name, int flags) const;
    Witness witness;  // set before anything is asked for

private:
    Descriptor openConfined(const std::string& path, int flags) const;
    // Nothing when links must be followed, or when the kernel cannot tell.
    std::optional<Destination> followWithoutLinks(const std::string& path) const;

    bool live;
    bool isSlash;
    bool kernelConfines;
    Descriptor root;     // of a recorded one
    Descriptor tops[4];  // of a live one, by Top
};

}  // namespace kivclaim::machine

#endif
