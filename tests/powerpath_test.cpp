// The claim module for PowerPath pseudo devices.
#include "modules/kiv_powerpath_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <stdexcept>

using recording::Host;
using recording::lines;

namespace {

class PowerPath : public testing::Test {
protected:
    void SetUp() override { module.registerTraceLog(host.log()); }

    Host host;
    CKivPowerPathClaim module;
};

// A module with other claim strings, as a host may derive one.
class Derived : public CKivPowerPathClaim {
public:
    explicit Derived(std::vector<std::string> strings) : strings(std::move(strings)) {}
    std::vector<std::string> getDeviceClaimStrings() override { return strings; }

private:
    std::vector<std::string> strings;
};

}  // namespace

TEST_F(PowerPath, HasOneClaimString)
{
    EXPECT_EQ(module.getDeviceClaimStrings(), lines({"/dev/emcpower"}));
}

TEST_F(PowerPath, ClaimsAPathThatContainsItsStringAnywhere)
{
    for (const char* const path : {"/dev/emcpowera", "/dev/emcpowerc2", "/x/dev/emcpowera", "/dev/emcpower"}) {
        host.forget();
        EXPECT_EQ(module.claim(path), 16U) << path;
        EXPECT_EQ(host.effectsInside(), lines({"3 INFO: CKivPowerPathClaim::claim - returning CLAIM_SECONDARY"}));
    }
}

TEST_F(PowerPath, ClaimsNoOtherPathAndRecordsNothing)
{
    for (const char* const path : {"/dev/sda", "emcpowera", "/dev/mapper/emcpowera", "/dev/emcpowe", ""}) {
        EXPECT_EQ(module.claim(path), 0U) << path;
    }
    EXPECT_EQ(host.effectsInside(), lines({}));
}

TEST_F(PowerPath, AsksADerivedModuleForItsClaimStrings)
{
    Derived derived({"/dev/other", "/dev/fast"});
    EXPECT_EQ(derived.claim("/dev/fast1"), 16U);
    EXPECT_EQ(derived.claim("/dev/emcpowera"), 0U);
    EXPECT_EQ(Derived({}).claim("/dev/emcpowera"), 0U);
}

TEST_F(PowerPath, APartitionIsAPathThatEndsInADigit)
{
    EXPECT_EQ(module.isPartition("/dev/emcpowera"), 0);
    EXPECT_EQ(module.isPartition("/dev/emcpowera1"), 1);
    EXPECT_EQ(module.isPartition("/dev/emcpowera0"), 1);
    EXPECT_EQ(module.isPartition("/dev/emcpowera9"), 1);
    EXPECT_EQ(module.isPartition("/dev/emcpower"), 0);
    EXPECT_EQ(module.isPartition("emcpowera1"), 0);
    EXPECT_EQ(module.isPartition("/dev/emcpowera:"), 0) << "the character after '9'";
    EXPECT_EQ(module.isPartition("/dev/emcpowera/"), 0) << "the character before '0'";
    EXPECT_EQ(module.isPartition(""), 0);
    EXPECT_EQ(host.effectsInside(), lines({}));
}

TEST_F(PowerPath, AppendsTheBareNumber)
{
    EXPECT_EQ(module.appendPartitionSuffix("/dev/emcpowerb", 3), "/dev/emcpowerb3");
    EXPECT_EQ(host.effectsInside(), lines({"3 INFO: CKivPowerPathClaim::appendPartitionSuffix device [/dev/emcpowerb] "
                                           "partition[/dev/emcpowerb3] partnum[3]"}));
    EXPECT_EQ(module.appendPartitionSuffix("/dev/emcpowera1", 1), "/dev/emcpowera11");
    EXPECT_EQ(module.appendPartitionSuffix("", 0), "0");
}

TEST_F(PowerPath, AppendsANumberAboveTheSignedRangeAsNegative)
{
    EXPECT_EQ(module.appendPartitionSuffix("/dev/emcpowera", 2147483647U), "/dev/emcpowera2147483647");
    host.forget();
    EXPECT_EQ(module.appendPartitionSuffix("/dev/emcpowera", 2147483648U), "/dev/emcpowera-2147483648");
    EXPECT_EQ(host.effectsInside(), lines({"3 INFO: CKivPowerPathClaim::appendPartitionSuffix device [/dev/emcpowera] "
                                           "partition[/dev/emcpowera-2147483648] partnum[-2147483648]"}));
    EXPECT_EQ(module.appendPartitionSuffix("/dev/emcpowera", 4294967295U), "/dev/emcpowera-1");
}

TEST_F(PowerPath, TakesTheTrailingDigitsAway)
{
    unsigned int partition = 77;
    EXPECT_EQ(module.removePartitionSuffix("/dev/emcpowerb15", partition), "/dev/emcpowerb");
    EXPECT_EQ(partition, 15U);
    EXPECT_EQ(host.effectsInside(), lines({"3 INFO: CKivPowerPathClaim::removePartitionSuffix device [/dev/emcpowerb] "
                                           "partition[/dev/emcpowerb15] partnum[15]"}));
    EXPECT_EQ(module.removePartitionSuffix("/dev/emcpowera12", partition), "/dev/emcpowera");
    EXPECT_EQ(partition, 12U);
    EXPECT_EQ(module.removePartitionSuffix("/dev/emcpower007", partition), "/dev/emcpower");
    EXPECT_EQ(partition, 7U);
}

TEST_F(PowerPath, AWholeDeviceHasPartitionZeroAndTheRecordIsStillWritten)
{
    unsigned int partition = 77;
    EXPECT_EQ(module.removePartitionSuffix("/dev/emcpowerb", partition), "/dev/emcpowerb");
    EXPECT_EQ(partition, 0U);
    EXPECT_EQ(host.effectsInside(), lines({"3 INFO: CKivPowerPathClaim::removePartitionSuffix device [/dev/emcpowerb] "
                                           "partition[/dev/emcpowerb] partnum[0]"}));
}

TEST_F(PowerPath, AForeignPathComesBackWithTheCallersNumber)
{
    unsigned int partition = 77;
    EXPECT_EQ(module.removePartitionSuffix("/dev/sdb1", partition), "/dev/sdb1");
    EXPECT_EQ(partition, 77U);
    EXPECT_EQ(host.effectsInside(), lines({"3 INFO: CKivPowerPathClaim::removePartitionSuffix device [/dev/sdb1] "
                                           "partition[/dev/sdb1] partnum[77]"}));
    EXPECT_EQ(module.removePartitionSuffix("", partition), "");
    EXPECT_EQ(partition, 77U);
}

TEST_F(PowerPath, TakesABareNameApartThoughItIsNotClaimed)
{
    unsigned int partition = 77;
    EXPECT_EQ(module.claim("emcpowerb3"), 0U);
    EXPECT_EQ(module.isPartition("emcpowerb3"), 0);
    EXPECT_EQ(module.removePartitionSuffix("emcpowerb3", partition), "emcpowerb");
    EXPECT_EQ(partition, 3U);
}

TEST_F(PowerPath, ANumberBeyondTheRangeIsCutToItsLowBits)
{
    unsigned int partition = 77;
    EXPECT_EQ(module.removePartitionSuffix("/dev/emcpowera4294967297", partition), "/dev/emcpowera");
    EXPECT_EQ(partition, 1U);
    EXPECT_EQ(module.removePartitionSuffix("/dev/emcpowera99999999999999999999", partition), "/dev/emcpowera");
    EXPECT_EQ(partition, 4294967295U) << "the low bits of the largest long";
}

TEST_F(PowerPath, AMillionDigitsAreTakenAwayAtOnce)
{
    unsigned int partition = 77;
    EXPECT_EQ(module.removePartitionSuffix("/dev/emcpowera" + std::string(1000000, '0') + "8", partition),
              "/dev/emcpowera");
    EXPECT_EQ(partition, 8U);
}

TEST_F(PowerPath, EveryOperationRecordsItsEntryAndExit)
{
    const auto scopesOf = [&](const char* name) {
        const recording::Lines all = host.trace(6);
        const std::string entering = std::string("Entering Function ") + name + " [";
        const std::string exiting = std::string("Exiting Function ") + name + " [";
        EXPECT_EQ(all.front().substr(0, entering.size()), entering);
        EXPECT_EQ(all.back().substr(0, exiting.size()), exiting);
        const std::string end = ", kiv_powerpath_claim.cpp]";
        for (const std::string& text : all) {
            EXPECT_EQ(text.substr(text.size() - end.size()), end);
        }
        host.forget();
        return all.size();
    };
    unsigned int partition = 0;
    module.getDeviceClaimStrings();
    EXPECT_EQ(scopesOf("getDeviceClaimStrings"), 2U);
    module.claim("/dev/emcpowera");
    EXPECT_EQ(scopesOf("claim"), 4U) << "with the question for the claim strings inside";
    module.isPartition("/dev/emcpowera");
    EXPECT_EQ(scopesOf("isPartition"), 2U);
    module.appendPartitionSuffix("/dev/emcpowera", 1);
    EXPECT_EQ(scopesOf("appendPartitionSuffix"), 2U);
    module.removePartitionSuffix("/dev/emcpowera1", partition);
    EXPECT_EQ(scopesOf("removePartitionSuffix"), 2U);
    EXPECT_EQ(host.logCount(), 2U);
}

TEST_F(PowerPath, AThrowingExitRecordLosesNoResult)
{
    const std::string device = "/dev/emcpowerabcdefghijklmnopqrstuvwxyz1";
    unsigned int partition = 0;
    host.failsTracing("Exiting Function");
    EXPECT_THROW(module.getDeviceClaimStrings(), std::runtime_error);
    EXPECT_THROW(module.appendPartitionSuffix(device, 1), std::runtime_error);
    EXPECT_THROW(module.removePartitionSuffix(device, partition), std::runtime_error);
    EXPECT_EQ(host.logCount(), 2U);
}

TEST(PowerPathWithoutALog, AnswersTheSame)
{
    const Host host;
    CKivPowerPathClaim module;
    unsigned int partition = 77;
    EXPECT_EQ(module.claim("/dev/emcpowera1"), 16U);
    EXPECT_EQ(module.isPartition("/dev/emcpowera1"), 1);
    EXPECT_EQ(module.appendPartitionSuffix("/dev/emcpowera", 1), "/dev/emcpowera1");
    EXPECT_EQ(module.removePartitionSuffix("/dev/emcpowera1", partition), "/dev/emcpowera");
    EXPECT_EQ(partition, 1U);
    EXPECT_EQ(host.effects(), lines({}));
}
