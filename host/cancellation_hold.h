// Puts a cancellation of the thread off. Private to the bundled host.
#ifndef KIVCLAIM_HOST_CANCELLATION_HOLD_H
#define KIVCLAIM_HOST_CANCELLATION_HOLD_H

#include <cxxabi.h>
#include <pthread.h>

#include <exception>

namespace kivclaim::host_internal {

// While it lives, a cancellation of the thread waits. It would otherwise strike inside destructors that have to end a
// child, close descriptors or unlock a log, or be swallowed on its way, either of which ends the process.
//
// An asynchronous cancellation strikes as soon as it is let: in `end`, which is called where nothing is in the way of
// the thread's end. A hold that is destroyed without it leaves such a thread with deferred cancellation.
//
// Threads: belongs to the thread that made it. Holds may nest.
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

    // Not called while an exception is in flight.
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

// What `work` returns or throws. An asynchronous cancellation that came meanwhile strikes before that.
template <class Work>
auto withoutCancellation(Work work)
{
    CancellationHold hold;
    decltype(work()) result{};
    std::exception_ptr failure;
    try {
        result = work();
    } catch (const abi::__forced_unwind&) {
        throw;  // a receiver of records ends the thread
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
