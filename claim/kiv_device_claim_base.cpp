// The default operations of a claim module. They write no trace records.
#include "claim/kiv_device_claim_base.h"

#include <string_view>

namespace {

constexpr std::string_view devPrefix = "/dev/";

}  // namespace

void CKivDeviceClaimBase::clearLvmDeviceNameList()
{
}

std::string CKivDeviceClaimBase::getActivePath(std::string device, bool /*waited*/)
{
    return device;
}

// Deliberate: a loose test, true for a path that only contains the prefix. Pinned by
// ClaimModuleDefaults.IsRawDeviceFindsThePrefixAnywhere.
bool CKivDeviceClaimBase::isRawDevice(std::string device)
{
    return device.find(devPrefix) != std::string::npos;
}

std::string CKivDeviceClaimBase::removeDevPrefix(std::string device)
{
    if (device.compare(0, devPrefix.size(), devPrefix) == 0) {
        device.erase(0, devPrefix.size());
    }
    return device;
}
