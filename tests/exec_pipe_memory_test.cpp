// The command runner when memory runs out, at each of its allocations in turn.
#include "tests/runner_fixture.h"

#include <csignal>
#include <cstdlib>
#include <functional>
#include <new>

namespace {

constexpr long unlimited = -1;

// How many more allocations this thread is granted.
thread_local long allocationsLeft = unlimited;

void* allocate(std::size_t size)
{
    if (allocationsLeft == 0) {
        throw std::bad_alloc();
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
    }
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size)
{
    return allocate(size);
}

void* operator new[](std::size_t size)
{
    return allocate(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return std::malloc(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return std::malloc(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace {

enum class End { outOfMemory, thrown, returned };

struct Attempt {
    End end = End::returned;
    int result = 0;
    Lines lines{"earlier"};
};

// Runs a command in one way or another, appending to the lines, and returns its result.
using Run = std::function<int(const std::string& command, Lines& lines)>;

int runByExec(const std::string& command, Lines& lines)
{
    return ztfi_pdk_4_4::CFiExecPipePosix(1).Exec(command, lines, "", 0, "", "", "");
}

int runWithAShortLimit(const std::string& command, Lines& lines)
{
    kivclaim::host_internal::RunLimits limits;
    // Long enough for a busy machine to write the output that must not be lost.
    limits.wholeRun = slowness * std::chrono::milliseconds(500);
    return kivclaim::host_internal::runCommand(command, limits, lines).result;
}

Attempt attemptWith(long allocations, const Run& run, const std::string& command)
{
    Attempt attempt;
    allocationsLeft = allocations;
    try {
        attempt.result = run(command, attempt.lines);
    } catch (const std::bad_alloc&) {
        attempt.end = End::outOfMemory;
    } catch (const ztfi_pdk_4_4::EFiExecPipe&) {
        attempt.end = End::thrown;
    }
    allocationsLeft = unlimited;
    return attempt;
}

// Grants ever more allocations until the run gets through; returns how many attempts failed before.
int failuresUntilItRuns(const Run& run, const std::string& command, Attempt& last)
{
    for (int allocations = 0;; ++allocations) {
        last = attemptWith(allocations, run, command);
        EXPECT_TRUE(hasNoChildren()) << allocations;
        if (last.end != End::outOfMemory) {
            return allocations;
        }
        EXPECT_EQ(last.lines, Lines{"earlier"}) << allocations;
    }
}

}  // namespace

class ExecPipeMemory : public RunnerTest {};

TEST_F(ExecPipeMemory, LeavesNothingBehindWhicheverAllocationFails)
{
    Attempt last;
    const std::string longLine(100, 'x');
    EXPECT_GT(failuresUntilItRuns(runByExec, probe + " print " + longLine + "@n" + longLine + "@n" + longLine, last),
              10);
    EXPECT_EQ(last.end, End::returned);
    EXPECT_EQ(last.result, 0);
    EXPECT_EQ(last.lines, (Lines{"earlier", longLine, longLine, longLine}));
}

TEST_F(ExecPipeMemory, EndsAChildThatIsStillRunning)
{
    Attempt last;
    EXPECT_GT(failuresUntilItRuns(runWithAShortLimit, probe + " print-bytes 500000 print @n sleep 60000", last), 10);
    EXPECT_EQ(last.result, 128 + SIGTERM);
    EXPECT_EQ(last.lines, (Lines{"earlier", std::string(500000, 'o')}));
}

TEST_F(ExecPipeMemory, LeavesNothingBehindWhenTheFailureCannotBeRecorded)
{
    Attempt last;
    EXPECT_GT(failuresUntilItRuns(runByExec, probe + " complain why exit 3", last), 10);
    EXPECT_EQ(last.result, 3);
    EXPECT_GT(failuresUntilItRuns(runByExec, "/nonexistent/tool", last), 5);
    EXPECT_EQ(last.end, End::thrown);
}
