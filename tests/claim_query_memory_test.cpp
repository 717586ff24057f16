// What is left of a claim query when memory runs out. This program has its own operator new, so it is not built with
// sanitizers; and it plays the host's part of the listing itself, with nothing that allocates besides.
#include "claim/kiv_claim_query.h"
#include "framework/cfiexecpipe.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

using kivclaim::ClaimAnswer;
using kivclaim::ClaimQuery;

namespace {

constexpr int unlimited = -1;

int successesLeft = unlimited;
int blocksAlive = 0;
bool hasFailed = false;
int runs = 0;
bool hasToFail = false;

// While it lives, allocating memory fails: the next `successes` calls still work.
class FailingAllocations {
public:
    explicit FailingAllocations(int successes)
    {
        successesLeft = successes;
        hasFailed = false;
    }
    ~FailingAllocations() { successesLeft = unlimited; }
};

}  // namespace

void* operator new(std::size_t size)
{
    if (successesLeft == 0) {
        hasFailed = true;
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

ztfi_pdk_4_4::CFiExecPipePosix::CFiExecPipePosix(int)
{
}

int ztfi_pdk_4_4::CFiExecPipeBase::Exec(std::string, std::vector<std::string>& output, std::string, unsigned long,
                                        std::string, std::string, std::string)
{
    ++runs;
    output.emplace_back("  LV Name                a-volume-with-a-name-longer-than-what-a-string-holds-itself");
    output.emplace_back("  VG Name                vg00");
    if (hasToFail) {
        lastFailure.message = "a message that is longer than what a string can hold without allocating memory";
        lastFailure.waitStatus = 5 << 8;
    }
    return hasToFail ? 5 : 0;
}

class QueryMemory : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(ExitStatus, QueryMemory, testing::Values(0, 5));

TEST_P(QueryMemory, WhicheverAllocationFailsTheQueryStaysUsableAndNothingIsLeaked)
{
    hasToFail = GetParam() != 0;
    const std::vector<std::string> paths = {
        "/dev/sda1", "/dev/mapper/vg00-a-volume-with-a-name-longer-than-what-a-string-holds-itself", "/dev/mapper/m"};
    CKivClaimManager manager;
    int failures = 0;
    for (bool isDone = false; !isDone; ++failures) {
        const int blocksBefore = blocksAlive;
        {
            ClaimQuery query(manager);
            std::vector<ClaimAnswer> answers;
            try {
                const FailingAllocations failing(failures);
                answers = query.askAll(paths);
                // A failure in the module's partition operations ends there, as ever.
                isDone = !hasFailed;
            } catch (const std::bad_alloc&) {
                answers = query.askAll(paths);
            }
            ASSERT_EQ(answers.size(), 3U);
            EXPECT_EQ(answers[0].number(), 1U);
            EXPECT_EQ(answers[1].level(), hasToFail ? 16U : 0U) << failures;
            EXPECT_EQ(answers[1].isUnsure(), hasToFail) << failures;
            EXPECT_EQ(answers[1].listing().volumes().size(), 1U);
            EXPECT_EQ(answers[2].wholeDevice(), "/dev/mapper/m");
        }
        EXPECT_EQ(blocksAlive, blocksBefore) << "when allocation " << failures << " failed";
    }
    EXPECT_GT(failures, 15);
}

TEST(QueryMemoryOfMaking, AQueryThatCannotBeCreatedLeaksNothing)
{
    CKivClaimManager manager;
    const int blocksBefore = blocksAlive;
    {
        const FailingAllocations failing(0);
        EXPECT_THROW(ClaimQuery{manager}, std::bad_alloc);
    }
    EXPECT_EQ(blocksAlive, blocksBefore);
}

TEST(QueryMemoryOfListing, AListThatWasReadBeforeMemoryRanOutIsKept)
{
    hasToFail = false;
    CKivClaimManager manager;
    ClaimQuery query(manager);
    query.ask("/dev/mapper/mpatha");
    runs = 0;
    for (int successes = 0; successes < 3; ++successes) {
        const FailingAllocations failing(successes);
        EXPECT_THROW(query.ask("/dev/mapper/a-path-that-is-longer-than-what-a-string-holds-itself"), std::bad_alloc);
    }
    EXPECT_EQ(query.ask("/dev/mapper/mpatha").level(), 16U);
    EXPECT_EQ(runs, 0);
}
