// Puts a cancellation of the thread off. Private to the bundled host.
#ifndef KIVCLAIM_HOST_CANCELLATION_HOLD_H
#define KIVCLAIM_HOST_CANCELLATION_HOLD_H

#include <pthread.h>

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

}  // namespace kivclaim::host_internal

#endif
