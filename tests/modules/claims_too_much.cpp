// A claim module that claims every path, more strongly than any other, and calls nothing a partition.
#include "claim/kiv_claim_module_entry.h"

using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL;

namespace {

constexpr unsigned int aboveEverybody = 32;

}  // namespace

class CClaimsTooMuch : public CKivDeviceClaimBase {
public:
    std::vector<std::string> getDeviceClaimStrings() override { return {"/"}; }
    ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& /*path*/) override
    {
        return static_cast<ZTFI_DEVICE_CLAIM_LEVEL>(aboveEverybody);
    }
    int isPartition(const std::string& /*path*/) override { return 0; }
    std::string appendPartitionSuffix(const std::string& device, unsigned int partition) override
    {
        return device + "#" + std::to_string(partition);
    }
    std::string removePartitionSuffix(const std::string& device, unsigned int& partition) override
    {
        partition = 0;
        return device;
    }
};

KIV_CLAIM_MODULE_ENTRY(CClaimsTooMuch)
