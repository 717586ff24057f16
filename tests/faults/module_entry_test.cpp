// The entry of a module's own file: what it makes of a failure.
#include "claim/kiv_claim_module_entry.h"
#include "modules/kiv_powerpath_claim.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace {

class ThrowsInItsConstructor : public CKivPowerPathClaim {
public:
    ThrowsInItsConstructor() { throw std::runtime_error("no module"); }
};

}  // namespace

KIV_CLAIM_MODULE_ENTRY(CKivPowerPathClaim)

TEST(ModuleEntry, AModuleOfTheSameContractIsMade)
{
    unsigned int contract = 0;
    const std::unique_ptr<CKivDeviceClaimBase> module(
        kivclaim::createClaimModule<CKivPowerPathClaim>(kivClaimModuleContract, &contract));
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(module->claim("/dev/emcpowera"), 16U);
    EXPECT_EQ(contract, 0x120U) << "the first contract, with strings of 32 bytes";
}

TEST(ModuleEntry, TheMacroDefinesTheFunctionThatHostsLookFor)
{
    unsigned int contract = 0;
    const std::unique_ptr<CKivDeviceClaimBase> module(kivclaim_create_claim_module(kivClaimModuleContract, &contract));
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(module->claim("/dev/emcpowera"), 16U);
    EXPECT_STREQ(kivCreateClaimModuleName, "kivclaim_create_claim_module");
}

TEST(ModuleEntry, AHostOfAnotherContractGetsNoModuleButTheContract)
{
    unsigned int contract = 0;
    EXPECT_EQ(kivclaim::createClaimModule<CKivPowerPathClaim>(kivClaimModuleContract + 1, &contract), nullptr);
    EXPECT_EQ(contract, kivClaimModuleContract);
}

TEST(ModuleEntry, AModuleThatCannotBeMadeIsNull)
{
    unsigned int contract = 0;
    EXPECT_EQ(kivclaim::createClaimModule<ThrowsInItsConstructor>(kivClaimModuleContract, &contract), nullptr);
    EXPECT_EQ(contract, kivClaimModuleContract);
}
