// The default operations of the claim-module interface.
#include "claim/kiv_device_claim_base.h"
#include "modules/kiv_powerpath_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

using recording::Host;
using recording::lines;

namespace {

class ClaimModuleDefaults : public testing::Test {
protected:
    void SetUp() override { module.registerTraceLog(host.log()); }
    // The defaults record nothing.
    void TearDown() override { EXPECT_EQ(host.effects(), lines({})); }

    Host host;
    CKivPowerPathClaim powerPath;
    CKivDeviceClaimBase& module = powerPath;
};

}  // namespace

TEST_F(ClaimModuleDefaults, RemoveDevPrefixRemovesOneLeadingPrefix)
{
    EXPECT_EQ(module.removeDevPrefix("/dev/sdc"), "sdc");
    EXPECT_EQ(module.removeDevPrefix("sdc"), "sdc");
    EXPECT_EQ(module.removeDevPrefix("/dev/"), "");
    EXPECT_EQ(module.removeDevPrefix("x/dev/sdc"), "x/dev/sdc");
    EXPECT_EQ(module.removeDevPrefix("/dev//dev/sda"), "/dev/sda");
    EXPECT_EQ(module.removeDevPrefix("/dev"), "/dev");
    EXPECT_EQ(module.removeDevPrefix(""), "");
}

TEST_F(ClaimModuleDefaults, IsRawDeviceFindsThePrefixAnywhere)
{
    EXPECT_TRUE(module.isRawDevice("/dev/sdc"));
    EXPECT_TRUE(module.isRawDevice("/xyz/dev/a"));
    EXPECT_TRUE(module.isRawDevice("mapper/dev/x"));
    EXPECT_FALSE(module.isRawDevice(""));
    EXPECT_FALSE(module.isRawDevice("/devsda"));
    EXPECT_FALSE(module.isRawDevice("sda"));
}

TEST_F(ClaimModuleDefaults, GetActivePathReturnsThePath)
{
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdc");
    EXPECT_EQ(module.getActivePath("/dev/sdc", false), "/dev/sdc");
    EXPECT_EQ(module.getActivePath("", true), "");
}

TEST_F(ClaimModuleDefaults, ClearingTheLogicalVolumeListChangesNothing)
{
    module.clearLvmDeviceNameList();
    EXPECT_EQ(host.logCount(), 2U);
}
