// Reference count, counting pointer, traceable base and scope tracer.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuse-after-free"  // g++ cannot follow the count
#endif
#include "framework/cfitracelog.h"
#include "tests/recording_host.h"

#include <ace/Malloc_Allocator.h>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using recording::FailingLocks;
using recording::Host;
using recording::lines;
using recording::LogPointer;
using ztfi_pdk_4_4::CFiErrorManager;
using ztfi_pdk_4_4::CFiMessage;
using ztfi_pdk_4_4::CFiNullAllocator;
using ztfi_pdk_4_4::CFiRefCount;
using ztfi_pdk_4_4::CFiSmartPtr;
using ztfi_pdk_4_4::CFiTraceable;
using ztfi_pdk_4_4::CFiTraceLog;
using ztfi_pdk_4_4::CFiTraceLogFunction;

namespace {

// A counted object that writes down its end.
class Shared : public virtual CFiRefCount {
public:
    explicit Shared(recording::Lines& diary) : diary(diary) {}
    ~Shared() override
    {
        diary.push_back("deleted with count " + std::to_string(getCount()) + ", " +
                        std::to_string(recording::locksHeld()) + " locks held");
    }

private:
    recording::Lines& diary;
};

using SharedPointer = CFiSmartPtr<Shared>;

// A counted object that writes down how many locks are held while its count changes.
class WatchesItsLock : public virtual CFiRefCount {
public:
    explicit WatchesItsLock(recording::Lines& diary) : diary(diary) {}
    unsigned int increment() override
    {
        diary.push_back("up under " + std::to_string(recording::locksHeld()));
        return CFiRefCount::increment();
    }
    unsigned int decrement() override
    {
        diary.push_back("down under " + std::to_string(recording::locksHeld()));
        return CFiRefCount::decrement();
    }

private:
    recording::Lines& diary;
};

class SmartPointer : public testing::Test {
protected:
    recording::Lines diary;
};

// Shows the log that a traceable object holds.
class Traceable : public CFiTraceable {
public:
    const LogPointer& held() const { return traceLog; }
    void registerItsOwn() { registerTraceLog(traceLog); }
};

void traced(const LogPointer& log, const char* function, int line, const char* file)
{
    const CFiTraceLogFunction scope(log, function, line, file);
}

}  // namespace

TEST_F(SmartPointer, ACountStartsAtZeroAndAcquireTakesTheFirstReference)
{
    auto* const shared = new Shared(diary);
    EXPECT_EQ(shared->getCount(), 0U);
    SharedPointer pointer;
    EXPECT_EQ(pointer.acquire(shared), 1);
    EXPECT_EQ(pointer.get(), shared);
    EXPECT_EQ(pointer->getCount(), 1U);
}

TEST_F(SmartPointer, IncrementAndDecrementReturnTheNewCountAndLockNothing)
{
    Shared shared(diary);
    const FailingLocks failing;
    EXPECT_EQ(shared.increment(), 1U);
    EXPECT_EQ(shared.increment(), 2U);
    EXPECT_EQ(shared.decrement(), 1U);
    EXPECT_EQ(shared.getCount(), 1U);
    EXPECT_EQ(shared.decrement(), 0U);
}

TEST_F(SmartPointer, ReleaseOfAnEmptyPointerReturnsMinusOneAndChangesNothing)
{
    SharedPointer pointer;
    EXPECT_EQ(pointer.release(), -1);
    EXPECT_EQ(pointer.get(), nullptr);
}

TEST_F(SmartPointer, ReleaseReturnsTheNewCountAndEmptiesThePointer)
{
    SharedPointer first;
    first.acquire(new Shared(diary));
    SharedPointer second(first);
    SharedPointer third(first);
    EXPECT_EQ(first->getCount(), 3U);
    EXPECT_EQ(third.release(), 2);
    EXPECT_EQ(third.get(), nullptr);
    EXPECT_EQ(second.release(), 1);
    EXPECT_EQ(diary, lines({}));
}

TEST_F(SmartPointer, TheLastReleaseDeletesWithTheCountPutBackToOne)
{
    SharedPointer pointer;
    pointer.acquire(new Shared(diary));
    EXPECT_EQ(pointer.release(), 0);
    EXPECT_EQ(diary, lines({"deleted with count 1, 0 locks held"}));
    EXPECT_EQ(pointer.get(), nullptr);
    EXPECT_EQ(pointer.release(), -1);
    EXPECT_EQ(diary.size(), 1U);
}

TEST_F(SmartPointer, AReleaseThatCannotLockKeepsThePointerAndTheCount)
{
    SharedPointer pointer;
    pointer.acquire(new Shared(diary));
    Shared* const shared = pointer.get();
    {
        const FailingLocks failing;
        EXPECT_EQ(pointer.release(), -1);
    }
    EXPECT_EQ(pointer.get(), shared);
    EXPECT_EQ(shared->getCount(), 1U);
    EXPECT_EQ(pointer.release(), 0);
}

TEST_F(SmartPointer, AcquireReleasesWhatIsHeldFirst)
{
    SharedPointer pointer;
    pointer.acquire(new Shared(diary));
    auto* const other = new Shared(diary);
    EXPECT_EQ(pointer.acquire(other), 1);
    EXPECT_EQ(diary.size(), 1U);
    EXPECT_EQ(pointer.get(), other);
}

TEST_F(SmartPointer, AcquireOfNullReturnsWhatTheReleaseReturned)
{
    SharedPointer pointer;
    EXPECT_EQ(pointer.acquire(nullptr), -1);
    pointer.acquire(new Shared(diary));
    SharedPointer other(pointer);
    EXPECT_EQ(pointer.acquire(nullptr), 1);
    EXPECT_EQ(pointer.get(), nullptr);
    EXPECT_EQ(other.acquire(nullptr), 0);
    EXPECT_EQ(diary.size(), 1U);
}

TEST_F(SmartPointer, AnAcquireThatCannotLockLeavesThePointerEmpty)
{
    Shared shared(diary);
    SharedPointer pointer;
    {
        const FailingLocks failing;
        EXPECT_EQ(pointer.acquire(&shared), -1);
    }
    EXPECT_EQ(pointer.get(), nullptr);
    EXPECT_EQ(shared.getCount(), 0U);
}

TEST_F(SmartPointer, AnAcquireThatCannotLockHasReleasedTheOldReferent)
{
    Shared shared(diary);
    SharedPointer pointer;
    pointer.acquire(new Shared(diary));
    {
        const FailingLocks failing(1);
        EXPECT_EQ(pointer.acquire(&shared), -1);
    }
    EXPECT_EQ(diary, lines({"deleted with count 1, 0 locks held"}));
    EXPECT_EQ(pointer.get(), nullptr);
}

TEST_F(SmartPointer, CopyKeepsThePointerUncountedWhenTheLockFails)
{
    SharedPointer pointer;
    pointer.acquire(new Shared(diary));
    {
        const FailingLocks failing;
        const SharedPointer copy(pointer);
        EXPECT_EQ(copy.get(), pointer.get());
        EXPECT_EQ(pointer->getCount(), 1U);
    }
    EXPECT_EQ(pointer->getCount(), 1U);
    EXPECT_EQ(diary, lines({}));
}

TEST_F(SmartPointer, AnUncountedCopyTakesAnotherHoldersReference)
{
    SharedPointer first;
    first.acquire(new Shared(diary));
    SharedPointer second(first);
    {
        const FailingLocks failing(0);
        SharedPointer copy(first);
        const FailingLocks working(-1);
        EXPECT_EQ(copy.release(), 1) << "the count of two holders, of which one has been robbed";
    }
    EXPECT_EQ(second.release(), 0);
    EXPECT_EQ(diary.size(), 1U) << "deleted, though the first pointer still holds it";
    new (&first) SharedPointer;  // what it points to is gone
}

TEST_F(SmartPointer, ACopyOfAnEmptyPointerIsEmpty)
{
    const SharedPointer empty;
    const SharedPointer copy(empty);
    EXPECT_EQ(copy.get(), nullptr);
}

TEST_F(SmartPointer, AssignmentReleasesTheOldAndCountsTheNew)
{
    SharedPointer first;
    first.acquire(new Shared(diary));
    SharedPointer second;
    second.acquire(new Shared(diary));
    first = second;
    EXPECT_EQ(diary.size(), 1U);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(second->getCount(), 2U);
    first = SharedPointer();
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(second->getCount(), 1U);
}

TEST_F(SmartPointer, AnAssignmentThatCannotLockTheNewReferentLeavesThePointerEmpty)
{
    SharedPointer first;
    first.acquire(new Shared(diary));
    SharedPointer second;
    second.acquire(new Shared(diary));
    {
        const FailingLocks failing(1);
        first = second;
    }
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(second->getCount(), 1U);
    EXPECT_EQ(diary.size(), 1U);
}

TEST_F(SmartPointer, SelfAssignmentTouchesNothing)
{
    SharedPointer pointer;
    pointer.acquire(new Shared(diary));
    const SharedPointer& same = pointer;
    const FailingLocks failing(0);
    pointer = same;
    EXPECT_EQ(pointer->getCount(), 1U);
    // The destructor must be able to lock again.
    const FailingLocks working(-1);
}

TEST_F(SmartPointer, SelfAssignmentOfTheOnlyHolderDeletesNothing)
{
    SharedPointer pointer;
    pointer.acquire(new Shared(diary));
    const SharedPointer& same = pointer;
    pointer = same;
    EXPECT_EQ(diary, lines({}));
    ASSERT_NE(pointer.get(), nullptr);
    EXPECT_EQ(pointer->getCount(), 1U);
}

TEST_F(SmartPointer, NullIsStoredAlthoughTheOldReferentCouldNotBeLocked)
{
    SharedPointer keeper;
    keeper.acquire(new Shared(diary));
    SharedPointer assigned(keeper);
    SharedPointer acquired(keeper);
    {
        const FailingLocks failing;
        assigned = SharedPointer();
        EXPECT_EQ(acquired.acquire(nullptr), -1);
    }
    EXPECT_EQ(assigned.get(), nullptr);
    EXPECT_EQ(acquired.get(), nullptr);
    EXPECT_EQ(keeper->getCount(), 3U) << "the two references are lost";
    keeper->decrement();
    keeper->decrement();
}

TEST_F(SmartPointer, TheOldReferentStaysWhenNeitherCanBeLocked)
{
    SharedPointer keeper;
    keeper.acquire(new Shared(diary));
    SharedPointer assigned(keeper);
    SharedPointer other;
    other.acquire(new Shared(diary));
    {
        const FailingLocks failing;
        assigned = other;
        EXPECT_EQ(assigned.get(), keeper.get());
        EXPECT_EQ(assigned.acquire(other.get()), -1);
        EXPECT_EQ(assigned.get(), keeper.get());
    }
    EXPECT_EQ(keeper->getCount(), 2U);
    EXPECT_EQ(other->getCount(), 1U);
}

TEST_F(SmartPointer, EveryChangeOfTheCountHappensUnderTheReferentsLock)
{
    CFiSmartPtr<WatchesItsLock> first;
    first.acquire(new WatchesItsLock(diary));
    CFiSmartPtr<WatchesItsLock> second(first);
    CFiSmartPtr<WatchesItsLock> third;
    third = second;
    third.release();
    second.release();
    first.release();
    EXPECT_EQ(diary, lines({"up under 1", "up under 1", "up under 1", "down under 1", "down under 1", "down under 1",
                            "up under 1"}));
    EXPECT_EQ(recording::locksHeld(), 0);
}

TEST_F(SmartPointer, EveryLockThatWasTakenIsGivenBack)
{
    SharedPointer first;
    first.acquire(new Shared(diary));
    EXPECT_EQ(recording::locksHeld(), 0) << "acquire";
    SharedPointer second(first);
    EXPECT_EQ(recording::locksHeld(), 0) << "copy";
    SharedPointer third;
    third = first;
    EXPECT_EQ(recording::locksHeld(), 0) << "assignment";
    third.release();
    EXPECT_EQ(recording::locksHeld(), 0) << "release";
}

TEST_F(SmartPointer, SeveralThreadsMayCopyAndReleaseOneReferent)
{
    SharedPointer pointer;
    pointer.acquire(new Shared(diary));
    const auto copyAndRelease = [](SharedPointer own) {
        for (int i = 0; i < 1000; ++i) {
            SharedPointer copy(own);
            SharedPointer assigned;
            assigned = copy;
            EXPECT_GT(assigned.release(), 0);
        }
    };
    std::thread first(copyAndRelease, pointer);
    std::thread second(copyAndRelease, pointer);
    first.join();
    second.join();
    EXPECT_EQ(pointer->getCount(), 1U);
    EXPECT_EQ(pointer.release(), 0);
    EXPECT_EQ(diary.size(), 1U);
}

TEST(TraceLog, ReleasesItsErrorManagerWhenItEnds)
{
    class Manager : public CFiErrorManager {
    public:
        explicit Manager(recording::Lines& diary) : diary(diary)
        {
            buffer = new char[16];
            messages[0x80000001U].acquire(new CFiMessage);
        }
        ~Manager() override { diary.push_back("error manager deleted"); }

    private:
        recording::Lines& diary;
    };
    class Log : public CFiTraceLog {
    public:
        explicit Log(CFiErrorManager* manager) { errorManager.acquire(manager); }
    };
    recording::Lines diary;
    LogPointer log;
    log.acquire(new Log(new Manager(diary)));
    EXPECT_EQ(log.release(), 0);
    EXPECT_EQ(diary, lines({"error manager deleted"}));
}

TEST(TraceLog, EndsWithItsErrorManagerThenItsTextsFromTheLastToTheFirst)
{
    class Memory : public ACE_New_Allocator {
    public:
        Memory(recording::Lines& diary, std::string text) : diary(diary), text(std::move(text)) {}
        void free(void* memory) override
        {
            diary.push_back(text + " freed");
            ACE_New_Allocator::free(memory);
        }

    private:
        recording::Lines& diary;
        std::string text;
    };
    class Manager : public CFiErrorManager {
    public:
        explicit Manager(recording::Lines& diary) : diary(diary) {}
        ~Manager() override { diary.push_back("error manager deleted"); }

    private:
        recording::Lines& diary;
    };
    class Log : public CFiTraceLog {
    public:
        Log(recording::Lines& diary, std::vector<Memory>& memory)
        {
            errorManager.acquire(new Manager(diary));
            for (std::size_t i = 0; i < 5; ++i) {
                texts[i].~ACE_String_Base<char>();
                new (&texts[i]) ACE_String_Base<char>("text", &memory[i]);
            }
        }
    };
    recording::Lines diary;
    std::vector<Memory> memory;
    for (int i = 0; i < 5; ++i) {
        memory.emplace_back(diary, "text " + std::to_string(i));
    }
    LogPointer log;
    log.acquire(new Log(diary, memory));
    diary.clear();
    EXPECT_EQ(log.release(), 0);
    EXPECT_EQ(diary, lines({"error manager deleted", "text 4 freed", "text 3 freed", "text 2 freed", "text 1 freed",
                            "text 0 freed"}));
}

TEST(ErrorManager, ReleasesItsMessagesWhenItEnds)
{
    class Message : public CFiMessage {
    public:
        explicit Message(bool& deleted) : deleted(deleted) {}
        ~Message() override { deleted = true; }

    private:
        bool& deleted;
    };
    class Manager : public CFiErrorManager {
    public:
        void hold(const CFiSmartPtr<CFiMessage, CFiNullAllocator<CFiMessage>>& message) { messages[7] = message; }
    };
    bool deleted = false;
    CFiSmartPtr<CFiMessage, CFiNullAllocator<CFiMessage>> message;
    message.acquire(new Message(deleted));
    {
        Manager manager;
        manager.hold(message);
        EXPECT_EQ(message->getCount(), 2U);
    }
    EXPECT_EQ(message->getCount(), 1U);
    EXPECT_FALSE(deleted);
    message.release();
    EXPECT_TRUE(deleted);
}

TEST(TraceableBase, HoldsALogFromRegistrationToItsEnd)
{
    Host host;
    EXPECT_EQ(host.logCount(), 1U);
    {
        Traceable object;
        EXPECT_EQ(object.held().get(), nullptr);
        object.registerTraceLog(host.log());
        EXPECT_EQ(host.logCount(), 2U);
    }
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(TraceableBase, RegisteringItsOwnMemberTouchesNothing)
{
    Host host;
    Traceable object;
    object.registerTraceLog(host.log());
    {
        const FailingLocks failing;
        object.registerItsOwn();
    }
    EXPECT_EQ(object.held().get(), host.log().get());
    EXPECT_EQ(host.logCount(), 2U);
}

TEST(TraceableBase, RegisteringTheSameLogAgainKeepsItsCount)
{
    Host host;
    Traceable object;
    object.registerTraceLog(host.log());
    const LogPointer another(host.log());
    object.registerTraceLog(another);
    EXPECT_EQ(object.held().get(), host.log().get());
    EXPECT_EQ(host.logCount(), 3U);
}

TEST(TraceableBase, RegisteringAnEmptyPointerEndsTracing)
{
    Host host;
    Traceable object;
    object.registerTraceLog(host.log());
    object.registerTraceLog(LogPointer());
    EXPECT_EQ(object.held().get(), nullptr);
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(TraceableBase, ARegistrationThatCannotLockLeavesNoLog)
{
    Host host;
    Traceable object;
    object.registerTraceLog(host.anotherLog("old"));
    const int destroyedBefore = recording::RecordingLog::destroyed;
    {
        const FailingLocks failing(1);
        object.registerTraceLog(host.log());
    }
    EXPECT_EQ(object.held().get(), nullptr);
    EXPECT_EQ(recording::RecordingLog::destroyed, destroyedBefore + 1);
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(TraceableBase, ACopyOfAPointerInsideTheOldLogMayBeRegistered)
{
    class LogWithItsSuccessor : public recording::RecordingLog {
    public:
        explicit LogWithItsSuccessor(const LogPointer& next) : RecordingLog("old"), next(next) {}
        LogPointer next;
    };
    Host host;
    Traceable object;
    LogPointer old;
    auto* const log = new LogWithItsSuccessor(host.log());
    old.acquire(log);
    object.registerTraceLog(old);
    old.release();
    const int destroyedBefore = recording::RecordingLog::destroyed;
    object.registerTraceLog(LogPointer(log->next));
    EXPECT_EQ(recording::RecordingLog::destroyed, destroyedBefore + 1);
    EXPECT_EQ(object.held().get(), host.log().get());
    EXPECT_EQ(host.logCount(), 2U);
}

TEST(TraceableBase, TheLastHolderDeletesTheLog)
{
    Host host;
    const int destroyedBefore = recording::RecordingLog::destroyed;
    {
        Traceable object;
        LogPointer log = host.anotherLog("other");
        object.registerTraceLog(log);
        EXPECT_EQ(log.release(), 1);
        EXPECT_EQ(recording::RecordingLog::destroyed, destroyedBefore);
    }
    EXPECT_EQ(recording::RecordingLog::destroyed, destroyedBefore + 1);
}

TEST(ScopeTracer, WritesEntryAndExitWithTheBaseNameOfTheFile)
{
    Host host;
    traced(host.log(), "claim", 42, "/some/where/modules/x.cpp");
    EXPECT_EQ(host.effects(), lines({"6 Entering Function claim [42, x.cpp]", "6 Exiting Function claim [42, x.cpp]"}));
}

TEST(ScopeTracer, LineZeroShortensOnlyTheExitRecord)
{
    Host host;
    traced(host.log(), "claim", 0, "modules/x.cpp");
    EXPECT_EQ(host.effects(), lines({"6 Entering Function claim [0, x.cpp]", "6 Exiting Function claim"}));
}

TEST(ScopeTracer, ABareFileNameIsReplacedByTheHeadersPath)
{
    Host host;
    traced(host.log(), "claim", 7, "x.cpp");
    EXPECT_EQ(host.effects(), lines({"6 Entering Function claim [7, framework/cfitracelog.h]",
                                     "6 Exiting Function claim [7, framework/cfitracelog.h]"}));
}

TEST(ScopeTracer, HoldsTheLogWhileItLives)
{
    Host host;
    {
        const CFiTraceLogFunction scope(host.log(), "claim", 1, "a/b");
        EXPECT_EQ(host.logCount(), 2U);
    }
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(ScopeTracer, WritesNothingWithoutLogFunctionOrFile)
{
    Host host;
    traced(LogPointer(), "claim", 1, "a/b");
    traced(host.log(), nullptr, 1, "a/b");
    traced(host.log(), "claim", 1, nullptr);
    EXPECT_EQ(host.effects(), lines({}));
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(ScopeTracer, TracesThroughAnUncountedCopyWhenTheLockFails)
{
    Host host;
    const FailingLocks failing(0);
    traced(host.log(), "claim", 1, "a/b");
    EXPECT_EQ(host.effects().size(), 2U);
    EXPECT_EQ(host.logCount(), 1U);
    const FailingLocks working(-1);
}

TEST(ScopeTracer, HoldsNoLockWhileItTraces)
{
    Host host;
    int highest = 0;
    host.onTrace = [&] { highest = std::max(highest, recording::locksHeld()); };
    traced(host.log(), "claim", 1, "a/b");
    EXPECT_EQ(host.effects().size(), 2U);
    EXPECT_EQ(highest, 0);
}

TEST(ScopeTracer, AnEntryRecordThatThrowsPropagatesAndReleasesTheLog)
{
    Host host;
    host.failsTracing("Entering Function");
    EXPECT_THROW(traced(host.log(), "claim", 1, "a/b"), std::runtime_error);
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(ScopeTracer, AnExitRecordThatThrowsAtANormalReturnPropagatesAndReleasesTheLog)
{
    Host host;
    host.failsTracing("Exiting Function");
    EXPECT_THROW(traced(host.log(), "claim", 1, "a/b"), std::runtime_error);
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(ScopeTracer, AnExitRecordThatThrowsDuringAnotherExceptionIsDropped)
{
    Host host;
    host.failsTracing("Exiting Function");
    const auto throwing = [&] {
        const CFiTraceLogFunction scope(host.log(), "claim", 1, "a/b");
        throw std::out_of_range("the first");
    };
    EXPECT_THROW(throwing(), std::out_of_range);
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(ScopeTracer, ANormalReturnInsideAnUnwindingDestructorStillPropagates)
{
    Host host;
    host.failsTracing("Exiting Function");
    bool caught = false;
    struct Cleanup {
        Host& host;
        bool& caught;
        ~Cleanup()
        {
            try {
                traced(host.log(), "claim", 1, "a/b");
            } catch (const std::runtime_error&) {
                caught = true;
            }
        }
    };
    const auto throwing = [&] {
        const Cleanup cleanup{host, caught};
        throw std::out_of_range("the first");
    };
    EXPECT_THROW(throwing(), std::out_of_range);
    EXPECT_TRUE(caught);
}
