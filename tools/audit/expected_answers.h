// What the built-in modules answer to names, as their headers and docs/quirks.md describe it. Written from these, on
// purpose without any code of the library: an audit by the library's own rules would find no fault in it.
#ifndef KIVCLAIM_TOOLS_AUDIT_EXPECTED_ANSWERS_H
#define KIVCLAIM_TOOLS_AUDIT_EXPECTED_ANSWERS_H

#include "host/command_snapshot.h"
#include "tools/audit/asked_machine.h"
#include "tools/audit/audited_device.h"

#include <optional>
#include <set>
#include <string>

namespace kivclaim::tools {

// The volumes that /sbin/lvdisplay prints, under the paths by which the library knows them.
struct VolumeListing {
    bool failed = false;
    std::set<std::string> paths;

    bool names(const std::string& path) const { return paths.count(path) != 0; }
};

// Two readings of the logical volumes, each made when it is first needed.
// Threads: one. Ownership: owns what it read. Failure: a reading that failed says so.
class VolumeListings {
public:
    VolumeListings() = default;
    // Readings that were made before.
    VolumeListings(VolumeListing remembered, VolumeListing now);

    // What the open session has seen. If the session keeps no snapshot, this is a new reading, too, and may differ from
    // what the library saw.
    const VolumeListing& remembered();

    // What is printed now.
    const VolumeListing& now();

private:
    std::optional<VolumeListing> first;
    std::optional<kivclaim::host::CommandSnapshot> snapshot;
    std::optional<VolumeListing> second;
};

// The answers about `path`, with a path for each of `partitions`. Worked out from the rules, without asking the
// library: an answer of the library that differs from these is an error of the library, not one of its quirks. Opens
// neighbours of `path`, like the library. Deliberate: the rules are written here a second time; calling the library's
// own functions for them would make every error of the library an expected answer.
LibraryAnswer expectedAnswer(const AskedMachine& asked, VolumeListings& volumes, const std::string& path,
                             const std::vector<PartitionPath>& partitions);

// How the release of the machine's kernel makes the device-mapper module name partitions.
enum class PartitionNames {
    underscore,  // _part1
    dash,        // -part1
    probed       // 1 or p1, whichever exists
};
PartitionNames partitionNames(const AskedMachine& asked);

// The path without its last one or two characters, the first of the two that can be opened; empty when neither can.
std::string openableNeighbour(const AskedMachine& asked, const std::string& path);

// Does `path` end in "part" and one digit?
bool endsLikeAPartition(const std::string& path);

bool endsInDigit(const std::string& path);

std::string withoutLast(const std::string& path, std::size_t characters);

}  // namespace kivclaim::tools

#endif
