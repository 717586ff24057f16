// The outcome of one command that a snapshot remembers. Private to the bundled host.
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

// The place of `command` in the snapshots that are open on this thread; null when none of them names it. It may outlive
// its snapshot.
std::shared_ptr<SnapshotPlace> snapshotPlaceOf(const std::string& command);

}  // namespace kivclaim::host_internal

#endif
