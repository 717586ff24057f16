// A machine that was captured in the lab, as a root directory: for --sysroot, and for lsblk --sysroot.
#ifndef KIVCLAIM_TESTS_CAPTURED_ROOT_H
#define KIVCLAIM_TESTS_CAPTURED_ROOT_H

#include "tests/process.h"

#include <string>

namespace tests {

// Contains the whole machine, lvdisplay's output there, and its kernel's release. Removed with the object.
class CapturedRoot {
public:
    // `release` is one of capturedReleases(). Throws std::runtime_error when it cannot be unpacked.
    explicit CapturedRoot(const std::string& release);

    const std::string& path() const { return folder.path(); }

private:
    TemporaryFolder folder;
};

}  // namespace tests

#endif
