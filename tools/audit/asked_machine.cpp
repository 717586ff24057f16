#include "tools/audit/asked_machine.h"

#include "tools/played_machine.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <fcntl.h>

namespace kivclaim::tools {

std::string AskedMachine::kernelRelease() const
{
    if (played != nullptr) {
        return played->kernelRelease();
    }
    utsname system{};
    uname(&system);
    return system.release;
}

bool AskedMachine::canBeOpened(const std::string& path) const
{
    if (played != nullptr) {
        return played->canBeOpened(path);
    }
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor >= 0) {
        close(descriptor);
    }
    return descriptor >= 0;
}

}  // namespace kivclaim::tools
