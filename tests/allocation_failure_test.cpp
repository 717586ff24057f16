// What is left when memory runs out. This program has its own operator new, so it is not built with sanitizers.
#include "claim/kiv_claim_manager.h"
#include "modules/kiv_powerpath_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

using recording::LogPointer;

namespace {

constexpr int unlimited = -1;

thread_local int successesLeft = unlimited;
thread_local int failures = 0;
int blocksAlive = 0;

// While it lives, allocating memory fails on this thread: the next `successes` calls still work.
class FailingAllocations {
public:
    explicit FailingAllocations(int successes) { successesLeft = successes; }
    ~FailingAllocations() { successesLeft = unlimited; }
};

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

void* operator new(std::size_t size)
{
    if (successesLeft == 0) {
        ++failures;
        throw std::bad_alloc();
    }
    if (successesLeft != unlimited) {
        --successesLeft;
    }
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++blocksAlive;
    return memory;
}

void operator delete(void* memory) noexcept
{
    if (memory != nullptr) {
        --blocksAlive;
    }
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    operator delete(memory);
}

TEST(ClaimManager, AModuleThatCannotBeAppendedHasTheLogAndStaysTheCallers)
{
    CKivClaimManager manager;
    while (manager.claimModules().size() != manager.claimModules().capacity()) {
        manager.registerClaimModule(new CountingModule);
    }
    const std::size_t modulesBefore = manager.claimModules().size();
    CountingModule module;
    const int aliveBefore = CountingModule::alive;
    {
        const FailingAllocations failing(0);
        EXPECT_THROW(manager.registerClaimModule(&module), std::bad_alloc);
    }
    EXPECT_EQ(module.logsGiven, 1);
    EXPECT_EQ(CountingModule::alive, aliveBefore);
    EXPECT_EQ(manager.claimModules().size(), modulesBefore);
    EXPECT_EQ(manager.claim("/dev/emcpowera"), 16U);
}

TEST(ClaimManager, AFailedConstructionLeavesTheEarlierModulesBehind)
{
    failures = 0;
    const int blocksBefore = blocksAlive;
    int constructions = 0;
    for (bool constructed = false; !constructed; ++constructions) {
        const FailingAllocations failing(constructions);
        try {
            const CKivClaimManager manager;
            constructed = true;
        } catch (const std::bad_alloc&) {
            continue;
        }
    }
    EXPECT_GE(failures, 2) << "each module and the list need memory";
    EXPECT_GT(blocksAlive, blocksBefore) << "the modules that were created before a failure";
    EXPECT_EQ(constructions, failures + 1) << "each failure reaches the host as the exception that it was";
}

TEST(ClaimManager, AMergeThatRunsOutOfMemoryLeavesTheManagerUsable)
{
    CKivClaimManager manager;
    failures = 0;
    for (int successes = 0; successes < 2; ++successes) {
        const FailingAllocations failing(successes);
        EXPECT_THROW(manager.getDeviceClaimStrings(), std::bad_alloc);
    }
    EXPECT_EQ(failures, 2);
    EXPECT_FALSE(manager.getDeviceClaimStrings().empty());
}
