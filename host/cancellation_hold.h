// Puts a cancellation of the thread off. Private to the bundled host.
#ifndef KIVCLAIM_HOST_CANCELLATION_HOLD_H
#define KIVCLAIM_HOST_CANCELLATION_HOLD_H

#include <pthread.h>

namespace kivclaim::host_internal {

// While it lives, a cancellation of the thread waits. It would otherwise strike inside destructors that have to end a
// child, close descriptors or unlock a log, or be swallowed on its way, either of which ends the process.
//
// Threads: belongs to the thread that made it. Holds may nest.
class CancellationHold {
public:
    CancellationHold() { ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &stateBefore); }
    CancellationHold(const CancellationHold&) = delete;
    CancellationHold& operator=(const CancellationHold&) = delete;
    ~CancellationHold() { ::pthread_setcancelstate(stateBefore, nullptr); }

private:
    int stateBefore = PTHREAD_CANCEL_ENABLE;
};

}  // namespace kivclaim::host_internal

#endif
