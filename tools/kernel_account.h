// The kernel's account of the devices that a session asks about.
#ifndef KIVCLAIM_TOOLS_KERNEL_ACCOUNT_H
#define KIVCLAIM_TOOLS_KERNEL_ACCOUNT_H

#include "machine/machine.h"
#include "tools/audit/kernel_truth.h"
#include "tools/session.h"

#include <deque>
#include <string>

namespace kivclaim::tools {

// One reading of the machine for all devices, made when it is first needed.
//
// Threads: one. Ownership: borrows the session; what it tells borrows its readings. Failure: a machine that cannot be
// read is a CommandError for `machine`, and no device for the other questions.
class KernelAccount {
public:
    explicit KernelAccount(const Session& session) : played(session.played()) {}

    // The latest reading.
    const kivclaim::machine::Machine& machine();

    // The facts about the device at a path. A device that is new, or another one than before, makes it read the machine
    // again: paths may come from standard input for a long time.
    KernelTruth at(const std::string& path);

    // Whether no device and no other file is at the path. Not known, and false, for one that may not be looked at.
    bool isNothingAt(const std::string& path);

    // Drops all readings but the latest, and with them what was told from them.
    void forgetEarlier();

private:
    const kivclaim::machine::Machine& readAgain();
    bool isOutdated(const std::string& path) const;

    const PlayedMachine* played;
    std::deque<kivclaim::machine::Machine> readings;
};

}  // namespace kivclaim::tools

#endif
