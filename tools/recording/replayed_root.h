// Opens a recording as a root directory.
#ifndef KIVCLAIM_TOOLS_RECORDING_REPLAYED_ROOT_H
#define KIVCLAIM_TOOLS_RECORDING_REPLAYED_ROOT_H

#include "tools/recording/scratch.h"

#include <optional>
#include <string>

namespace kivclaim::tools {

// What for: takes what --sysroot takes: a directory as for lsblk, a recording that is a directory, or one that is a
// file, which is unpacked for as long as the object lives. Recordings are checked first.
// Threads: as Scratch. Ownership: owns what it unpacked. Failure: CommandError, in one line.
class ReplayedRoot {
public:
    explicit ReplayedRoot(const std::string& path);

    const std::string& directory() const { return unpacked ? unpacked->path() : path; }

private:
    std::string path;
    std::optional<Scratch> unpacked;
};

}  // namespace kivclaim::tools

#endif
