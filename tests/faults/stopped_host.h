// A host that is stopped, as by a debugger, by Ctrl-Z or with its machine.
#ifndef KIVCLAIM_TESTS_FAULTS_STOPPED_HOST_H
#define KIVCLAIM_TESTS_FAULTS_STOPPED_HOST_H

#include "tests/faults/system_call_faults.h"

#include <chrono>
#include <csignal>
#include <thread>

namespace tests {

// A judge that stops the host for this time at the first call that it judges.
inline Judge stoppingTheHostFor(std::chrono::milliseconds time)
{
    return [time, isStopped = false](const SystemCall& call) mutable {
        if (call.isOfHost() && !isStopped) {
            isStopped = true;
            ::kill(call.host, SIGSTOP);
            std::this_thread::sleep_for(time);
            ::kill(call.host, SIGCONT);
        }
        return goesOn();
    };
}

}  // namespace tests

#endif
