// Every operation of the library, while one fault after the other strikes: an allocation, a record or a lock that
// fails.
#include "tests/faults/failing_allocations.h"
#include "tests/faults/operations.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

using faults::allOperations;
using faults::blocksAlive;
using faults::FailingAllocations;
using faults::Library;
using faults::Operation;
using recording::Host;

namespace {

struct LogFailure {};

class EveryOperation : public testing::TestWithParam<Operation> {
protected:
    // How the fault ended: with the right answer, a neutral one, or the exception that struck.
    enum class End { right, neutral, exception, wrong };

    End endOf(Library& library) const
    {
        try {
            const std::string answer = GetParam().ask(library);
            if (answer == GetParam().right) {
                return End::right;
            }
            return GetParam().neutral.count(answer) != 0 ? End::neutral : End::wrong;
        } catch (const std::bad_alloc&) {
            return End::exception;
        } catch (const LogFailure&) {
            return End::exception;
        }
    }

    // Asks with one fault after the other: `strike` sets the k-th one up, asks, and tells how that ended and whether
    // the fault struck at all. Afterwards no reference and no lock may be kept, and the objects must answer as before.
    template <class Strike>
    int strikeOneByOne(const Strike& strike)
    {
        for (int k = 0;; ++k) {
            SCOPED_TRACE("fault " + std::to_string(k));
            Host host;
            GetParam().machine(host);
            GetParam().machine(host);
            Library library(host);
            const unsigned int holders = host.logCount();
            const bool struck = strike(host, library, k);
            EXPECT_EQ(recording::locksHeld(), 0);
            if (GetParam().name != "ManagerRegistersAModule") {  // whose module holds the log from then on
                EXPECT_EQ(host.logCount(), holders);
                library.mapper.clearLvmDeviceNameList();
                EXPECT_EQ(endOf(library), End::right) << "asked again";
            }
            host.dropScripts();
            if (!struck) {
                return k;
            }
        }
    }
};

// The first call of the standard library's, ACE's or GoogleTest's own may keep memory for good.
void warmUp(const Operation& operation)
{
    SCOPED_TRACE("warming up");
    Host host;
    operation.machine(host);
    Library library(host);
    operation.ask(library);
    host.dropScripts();
}

// What failing locks did to the count: at least the host's own reference must be left; the spare ones go.
void settleReferences(const Host& host)
{
    EXPECT_GE(host.logCount(), 1U) << "more than one reference was lost";
    while (host.logCount() > 1) {
        host.log()->decrement();
    }
}

bool isAnsweredInEveryCase(const std::string& name)
{
    return name == "MapperBuildsTheList" || name == "MapperFailsToBuildTheList" ||
           name == "MapperIsThrownAtByTheRunner" || name.compare(0, 11, "MapperKnows") == 0 ||
           name.compare(0, 13, "MapperAppends") == 0 || name.compare(0, 13, "MapperRemoves") == 0;
}

}  // namespace

TEST_P(EveryOperation, IsRightOrNeutralOrThrowsWhenOneAllocationFails)
{
    warmUp(GetParam());
    const long before = blocksAlive();
    strikeOneByOne([&](Host& /*host*/, Library& library, int k) {
        const FailingAllocations failing(k, 1);
        const End end = endOf(library);
        EXPECT_NE(end, End::wrong);
        EXPECT_FALSE(end == End::exception && isAnsweredInEveryCase(GetParam().name));
        return FailingAllocations::failed() != 0;
    });
    EXPECT_EQ(blocksAlive(), before) << "memory was lost";
}

TEST_P(EveryOperation, IsRightOrNeutralOrThrowsWhenMemoryRunsOutForGood)
{
    warmUp(GetParam());
    const long before = blocksAlive();
    strikeOneByOne([&](Host& /*host*/, Library& library, int k) {
        const FailingAllocations failing(k);
        EXPECT_NE(endOf(library), End::wrong);
        return FailingAllocations::failed() != 0;
    });
    EXPECT_EQ(blocksAlive(), before) << "memory was lost";
}

TEST_P(EveryOperation, IsRightOrNeutralOrPassesOnWhatOneRecordThrows)
{
    warmUp(GetParam());
    const long before = blocksAlive();
    strikeOneByOne([&](Host& host, Library& library, int k) {
        int left = k;
        host.onTrace = [&left] {
            if (left-- == 0) {
                throw LogFailure();
            }
        };
        EXPECT_NE(endOf(library), End::wrong);
        host.onTrace = {};
        return left < 0;
    });
    EXPECT_EQ(blocksAlive(), before) << "memory was lost";
}

TEST_P(EveryOperation, IsRightOrNeutralOrPassesOnWhatTheLogKeepsThrowing)
{
    warmUp(GetParam());
    const long before = blocksAlive();
    strikeOneByOne([&](Host& host, Library& library, int k) {
        int left = k;
        host.onTrace = [&left] {
            if (left-- <= 0) {
                throw LogFailure();
            }
        };
        EXPECT_NE(endOf(library), End::wrong);
        host.onTrace = {};
        return left < 0;
    });
    EXPECT_EQ(blocksAlive(), before) << "memory was lost";
}

TEST_P(EveryOperation, IsRightWhenOneLockFails)
{
    for (int k = 0;; ++k) {
        Host host;
        GetParam().machine(host);
        bool struck = false;
        {
            // The copy that could not count gives back the reference of another holder: of this one.
            const recording::LogPointer spare(host.log());
            host.log()->increment();
            Library library(host);
            {
                const recording::OneFailingLock failing(k);
                EXPECT_EQ(endOf(library), End::right) << "lock " << k;
                struck = recording::OneFailingLock::hasFailed();
            }
            EXPECT_EQ(recording::locksHeld(), 0);
        }
        settleReferences(host);
        host.dropScripts();
        if (!struck) {
            return;
        }
    }
}

TEST_P(EveryOperation, IsRightWhenNoLockWorksAnyLonger)
{
    for (int k = 0; k < 40; ++k) {
        Host host;
        GetParam().machine(host);
        {
            const recording::LogPointer spare(host.log());
            host.log()->increment();
            Library library(host);
            const recording::FailingLocks failing(k);
            EXPECT_EQ(endOf(library), End::right) << "lock " << k;
            const recording::FailingLocks working(-1);
        }
        settleReferences(host);
        host.dropScripts();
    }
}

TEST_P(EveryOperation, IsRightWhileSignalsInterruptEveryPause)
{
    for (const long milliseconds : {1L, 100L, 999L, 2500L}) {
        Host host;
        GetParam().machine(host);
        host.signalMilliseconds = milliseconds;
        Library library(host);
        EXPECT_EQ(endOf(library), End::right);
        host.dropScripts();
    }
}

TEST_P(EveryOperation, IsRightWithoutALog)
{
    Host host;
    GetParam().machine(host);
    Library library(host);
    const recording::LogPointer none;
    library.manager.registerTraceLog(none);
    library.mapper.registerTraceLog(none);
    library.powerPath.registerTraceLog(none);
    library.native.registerTraceLog(none);
    library.support.registerTraceLog(none);
    host.forget();
    EXPECT_EQ(endOf(library), End::right);
    if (GetParam().name != "ManagerRegistersALog") {
        EXPECT_EQ(host.effects(), host.calls()) << "no record";
    }
    host.dropScripts();
}

INSTANTIATE_TEST_SUITE_P(Library, EveryOperation, testing::ValuesIn(allOperations()),
                         [](const auto& information) { return information.param.name; });
