#include "multipath_paths.h"

std::vector<std::string> multipathDevices(CKivClaimManager& manager, const std::vector<std::string>& paths)
{
    std::vector<std::string> devices;
    for (const std::string& path : paths) {
        const bool isMultipath = manager.claim(path) == ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY;
        if (isMultipath && manager.isPartition(path) == 0) {
            devices.push_back(path);
        }
    }
    return devices;
}
