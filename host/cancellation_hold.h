// Postpones a cancellation of the thread. Private to the bundled host.
#ifndef KIVCLAIM_HOST_CANCELLATION_HOLD_H
#define KIVCLAIM_HOST_CANCELLATION_HOLD_H

#include <cxxabi.h>
#include <pthread.h>

#include <exception>

namespace kivclaim::host_internal {

// While it exists, a cancellation of the thread is pending. Otherwise it could act inside destructors that have to end
// a child, close descriptors or unlock a log, or be swallowed by a handler, either of which ends the process.
//
// An asynchronous cancellation acts in `end`, which is called where the thread may safely end. A hold that is destroyed
// without `end` leaves such a thread with deferred cancellation.
//
// Threads: belongs to the thread that created it. Holds may nest.
class CancellationHold {
public:
    CancellationHold()
    {
        ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &stateBefore);
        ::pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &typeBefore);
    }
    CancellationHold(const CancellationHold&) = delete;
    CancellationHold& operator=(const CancellationHold&) = delete;
    ~CancellationHold()
    {
        if (isHolding) {
            ::pthread_setcancelstate(stateBefore, nullptr);
        }
    }

    // Do not call it while an exception propagates.
    void end()
    {
        isHolding = false;
        ::pthread_setcancelstate(stateBefore, nullptr);
        ::pthread_setcanceltype(typeBefore, nullptr);
    }

private:
    int stateBefore = PTHREAD_CANCEL_ENABLE;
    int typeBefore = PTHREAD_CANCEL_DEFERRED;
    bool isHolding = true;
};

// Returns or throws what `work` does. An asynchronous cancellation that was requested meanwhile acts first.
template <class Work>
auto withoutCancellation(Work work)
{
    CancellationHold hold;
    decltype(work()) result{};
    std::exception_ptr failure;
    try {
        result = work();
    } catch (const abi::__forced_unwind&) {
        throw;  // a receiver of records may end the thread
    } catch (...) {
        failure = std::current_exception();
    }
    hold.end();
    if (failure != nullptr) {
        std::rethrow_exception(failure);
    }
    return result;
}

}  // namespace kivclaim::host_internal

#endif
