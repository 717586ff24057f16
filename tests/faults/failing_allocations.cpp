#include "tests/faults/failing_allocations.h"

#include "tests/recording_host.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

thread_local bool active = false;
thread_local int successesLeft = 0;
thread_local int failuresLeft = 0;
thread_local int failedSoFar = 0;
std::atomic<long> alive{0};

bool mayAllocate()
{
    if (!active || recording::InsideHost::isHere()) {
        return true;
    }
    if (successesLeft > 0) {
        --successesLeft;
        return true;
    }
    if (failuresLeft == 0) {
        return true;
    }
    if (failuresLeft != faults::forever) {
        --failuresLeft;
    }
    ++failedSoFar;
    return false;
}

void* allocated(std::size_t size)
{
    void* const memory = mayAllocate() ? std::malloc(size != 0 ? size : 1) : nullptr;
    alive += memory != nullptr ? 1 : 0;
    return memory;
}

void* allocatedOrThrown(std::size_t size)
{
    void* const memory = allocated(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void freed(void* memory)
{
    alive -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

}  // namespace

namespace faults {

FailingAllocations::FailingAllocations(int successes, int failures)
{
    successesLeft = successes;
    failuresLeft = failures;
    failedSoFar = 0;
    active = true;
}

FailingAllocations::~FailingAllocations()
{
    active = false;
}

int FailingAllocations::failed()
{
    return failedSoFar;
}

long blocksAlive()
{
    return alive;
}

}  // namespace faults

void* operator new(std::size_t size)
{
    return allocatedOrThrown(size);
}

void* operator new[](std::size_t size)
{
    return allocatedOrThrown(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return allocated(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return allocated(size);
}

void operator delete(void* memory) noexcept
{
    freed(memory);
}

void operator delete[](void* memory) noexcept
{
    freed(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    freed(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept
{
    freed(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept
{
    freed(memory);
}

void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept
{
    freed(memory);
}
