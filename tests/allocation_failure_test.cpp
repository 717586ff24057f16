// What is left when memory runs out.
#include "claim/kiv_claim_manager.h"
#include "modules/kiv_powerpath_claim.h"
#include "tests/faults/failing_allocations.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <new>

using faults::blocksAlive;
using faults::FailingAllocations;
using recording::LogPointer;

namespace {

// A module that counts itself and the logs it is given, and allocates nothing.
class CountingModule : public CKivPowerPathClaim {
public:
    CountingModule() { ++alive; }
    ~CountingModule() override { --alive; }
    void registerTraceLog(const LogPointer& /*log*/) override { ++logsGiven; }

    static int alive;
    int logsGiven = 0;
};

int CountingModule::alive = 0;

}  // namespace

TEST(ClaimManager, AModuleThatCannotBeAppendedHasTheLogAndStaysTheCallers)
{
    CKivClaimManager manager;
    while (manager.claimModules().size() != manager.claimModules().capacity()) {
        manager.registerClaimModule(new CountingModule);
    }
    const std::size_t modulesBefore = manager.claimModules().size();
    const auto module = std::make_unique<CountingModule>();
    const int aliveBefore = CountingModule::alive;
    {
        const FailingAllocations failing(0);
        EXPECT_THROW(manager.registerClaimModule(module.get()), std::bad_alloc);
    }
    EXPECT_EQ(module->logsGiven, 1);
    EXPECT_EQ(CountingModule::alive, aliveBefore);
    EXPECT_EQ(manager.claimModules().size(), modulesBefore);
    EXPECT_EQ(manager.claim("/dev/emcpowera"), 16U);
}

TEST(ClaimManager, AFailedConstructionLeaksTheEarlierModules)
{
    const long blocksBefore = blocksAlive();
    int failures = 0;
    int constructions = 0;
    for (bool constructed = false; !constructed; ++constructions) {
        const FailingAllocations failing(constructions);
        try {
            const CKivClaimManager manager;
            constructed = true;
        } catch (const std::bad_alloc&) {
            failures += FailingAllocations::failed();
        }
    }
    EXPECT_GE(failures, 2) << "each module and the list need memory";
    EXPECT_GT(blocksAlive(), blocksBefore) << "the modules that were created before a failure";
    EXPECT_EQ(constructions, failures + 1) << "each failure reaches the host as the exception that it was";
}

TEST(ClaimManager, AMergeThatRunsOutOfMemoryLeavesTheManagerUsable)
{
    CKivClaimManager manager;
    int failures = 0;
    for (int successes = 0; successes < 2; ++successes) {
        const FailingAllocations failing(successes);
        EXPECT_THROW(manager.getDeviceClaimStrings(), std::bad_alloc);
        failures += FailingAllocations::failed();
    }
    EXPECT_EQ(failures, 2);
    EXPECT_FALSE(manager.getDeviceClaimStrings().empty());
}
