#include "host/runner/lost_status.h"

#include "host/runner/waiting.h"

#include <sys/ioctl.h>

#include <cstdint>

namespace kivclaim::host_internal {

namespace {

// The kernel's definition, which older headers lack.
struct ProcessInformation {
    std::uint64_t mask;
    std::uint64_t controlGroup;
    std::uint32_t numbersAndUsers[11];
    std::int32_t waitStatus;
};
static_assert(sizeof(ProcessInformation) == 64, "the first form of the kernel's structure");

constexpr std::uint64_t maskOfWaitStatus = 1U << 3U;
constexpr unsigned long askForInformation = _IOWR(0xFF, 11, ProcessInformation);

}  // namespace

bool readLostStatus(const FileDescriptor& processDescriptor, int& waitStatus) noexcept
{
    // The kernel provides the status a moment after the child was collected.
    constexpr std::chrono::milliseconds momentOfCollecting{100};
    ProcessInformation information{};
    const auto isKnown = [&] {
        information.mask = maskOfWaitStatus;
        return ::ioctl(processDescriptor.get(), askForInformation, &information) == 0 &&
               (information.mask & maskOfWaitStatus) != 0;
    };
    if (!processDescriptor.isOpen() || !becomesTrue(momentOfCollecting, isKnown)) {
        return false;
    }
    waitStatus = information.waitStatus;
    return true;
}

}  // namespace kivclaim::host_internal
