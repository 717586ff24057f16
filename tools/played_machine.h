// Presents a recorded machine to the claim modules instead of the one that this process runs on.
#ifndef KIVCLAIM_TOOLS_PLAYED_MACHINE_H
#define KIVCLAIM_TOOLS_PLAYED_MACHINE_H

#include "claim/kiv_device_claim_base.h"
#include "host/command_replay.h"
#include "machine/machine.h"
#include "machine/recorded_files.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct utsname;

namespace kivclaim::tools {

// While it lives, the claim library, and modules that it plays to, see the recorded machine: through the C library's
// functions that they call (uname, open, access, sleep; what they opened they close as ever), and through the host's
// runner. Those of the innermost played machine count. What was not recorded is missing to them, never taken from this
// machine, and noted.
//
// Nodes of devices exist even if no files were recorded for them, and can be opened unless the recording says that the
// user could not.
// user could not.
//
// Threads: one, the one that made it. Ownership: owns what it read; borrows `known`. Failure: the constructor throws
// CommandError for a directory that is no root, and for an invalid recorded file.
class PlayedMachine {
public:
    // `known` is that machine when it has been read already: it is borrowed. Null has it read.
    explicit PlayedMachine(const kivclaim::machine::Root& root, const kivclaim::machine::Machine* known = nullptr);
    PlayedMachine(const PlayedMachine&) = delete;
    PlayedMachine& operator=(const PlayedMachine&) = delete;
    ~PlayedMachine();

    // Shows the recorded machine to the file of `module` as well, which is one of the user's.
    void playTo(const CKivDeviceClaimBase& module);

    // With numbers and stacking, unless it was read already.
    const kivclaim::machine::Machine& devices() const { return machine; }

    // As a program on the machine would find it; an empty release is not known.
    const std::string& kernelRelease() const { return release; }
    bool canBeOpened(const std::string& path) const;

    // Whether the outcome of a command was recorded.
    bool knows(const std::string& command) const;
    // Whether it was recorded that there was no such program.
    bool lacks(const std::string& command) const;

    // What was asked for since the last call and has not been recorded, in words for after "because"; empty when
    // nothing was.
    std::string takeMissing();
    // Why there is no listing of logical volumes, in such words; empty when there is one.
    std::string whyNoListing() const;

    // For the functions in the place of the C library's. They set errno and throw nothing.
    bool isSeenBy(const void* caller) const noexcept;
    int tellRelease(utsname& system) noexcept;
    int openNode(const char* path, int flags) const noexcept;
    int mayAccess(const char* path, int mode) const noexcept;

private:
    // Where the code and data of one file are in memory.
    struct Extent {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
    };

    void playToFileWith(const void* address);
    std::optional<kivclaim::host::CommandOutcome> outcomeOf(const std::string& command);
    std::optional<kivclaim::host::CommandOutcome> outcomeOf(const std::string& command, std::string& problem) const;

    std::optional<kivclaim::machine::Machine> own;
    const kivclaim::machine::Machine& machine;
    kivclaim::machine::RecordedFiles files;
    std::string release;
    std::set<std::string> missing;
    std::vector<Extent> audience;
    kivclaim::host::CommandReplay replay;
    PlayedMachine* outer;
};

}  // namespace kivclaim::tools

#endif
