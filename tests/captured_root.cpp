#include "tests/captured_root.h"

#include <stdexcept>

namespace tests {

CapturedRoot::CapturedRoot(const std::string& release)
{
    const std::string captured = std::string(KIVCLAIM_CAPTURED) + "/" + release;
    const Ended unpacked = Process(KIVCLAIM_UNPACK_MACHINE, {captured, folder.path()}).run();
    if (unpacked.status != 0) {
        throw std::runtime_error("unpack_machine failed: " + unpacked.errors);
    }
}

}  // namespace tests
