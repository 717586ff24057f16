// Compiled with -fno-rtti.
#include "claim/kiv_device_claim_base.h"

#include <memory>

namespace {

class UntypedModule : public CKivDeviceClaimBase {
public:
    std::vector<std::string> getDeviceClaimStrings() override { return {}; }
    ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& /*path*/) override
    {
        return ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NATIVE;
    }
    int isPartition(const std::string& /*path*/) override { return 0; }
    std::string appendPartitionSuffix(const std::string& device, unsigned int /*partition*/) override { return device; }
    std::string removePartitionSuffix(const std::string& device, unsigned int& /*partition*/) override
    {
        return device;
    }
};

}  // namespace

std::unique_ptr<CKivDeviceClaimBase> makeUntypedModule();

std::unique_ptr<CKivDeviceClaimBase> makeUntypedModule()
{
    return std::make_unique<UntypedModule>();
}
