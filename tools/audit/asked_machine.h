// The machine that the library was asked about, as a program there would see it. The rules for expected answers use it.
#ifndef KIVCLAIM_TOOLS_AUDIT_ASKED_MACHINE_H
#define KIVCLAIM_TOOLS_AUDIT_ASKED_MACHINE_H

#include <string>

namespace kivclaim::tools {

class PlayedMachine;

// Threads: one. Ownership: borrows the played machine. Failure: none; what is not known is empty or false.
class AskedMachine {
public:
    // Null: the machine that this process runs on.
    explicit AskedMachine(const PlayedMachine* played = nullptr) : played(played) {}

    std::string kernelRelease() const;
    bool canBeOpened(const std::string& path) const;

private:
    const PlayedMachine* played;
};

}  // namespace kivclaim::tools

#endif
