// Signals that interrupt the system calls of the process.
#ifndef KIVCLAIM_TESTS_FAULTS_SIGNAL_STORM_H
#define KIVCLAIM_TESTS_FAULTS_SIGNAL_STORM_H

#include <sys/time.h>

#include <atomic>
#include <csignal>

namespace tests {

// While it exists, a signal interrupts system calls every millisecond, and they are not restarted.
class SignalStorm {
public:
    SignalStorm()
    {
        count() = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) { ++count(); };
        ::sigaction(SIGALRM, &action, &before);
        setInterval(1000);
    }
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;
    ~SignalStorm()
    {
        setInterval(0);
        ::sigaction(SIGALRM, &before, nullptr);
    }

    // The number of signals since the last storm began.
    static int signals() { return count(); }

private:
    static std::atomic<int>& count()
    {
        static std::atomic<int> counted{0};
        return counted;
    }

    static void setInterval(suseconds_t microseconds)
    {
        const itimerval interval{{0, microseconds}, {0, microseconds}};
        ::setitimer(ITIMER_REAL, &interval, nullptr);
    }

    struct sigaction before = {};
};

}  // namespace tests

#endif
