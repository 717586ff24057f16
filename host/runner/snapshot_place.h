// What a snapshot remembers of one command. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_SNAPSHOT_PLACE_H
#define KIVCLAIM_HOST_RUNNER_SNAPSHOT_PLACE_H

#include "host/runner/command_run.h"

#include <memory>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

struct SnapshotPlace {
    bool isFilled = false;
    CommandResult result;
    std::vector<std::string> lines;
};

// Where the snapshots that are open on this thread remember `command`; null when none of them names it. Outlives its
// snapshot for as long as it is held.
std::shared_ptr<SnapshotPlace> snapshotPlaceOf(const std::string& command);

}  // namespace kivclaim::host_internal

#endif
