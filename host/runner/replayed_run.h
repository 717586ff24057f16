// Returns the recorded outcome of a command, if a replay is open. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_REPLAYED_RUN_H
#define KIVCLAIM_HOST_RUNNER_REPLAYED_RUN_H

#include "host/runner/command_run.h"

#include <optional>
#include <string>
#include <vector>

namespace kivclaim::host_internal {

// What the replay that is open on this thread gives for `command`; nothing when none is open.
std::optional<CommandResult> replayed(const std::string& command, std::vector<std::string>& output);

// As runCommand, unless a replay is open on this thread: then nothing is run.
CommandResult runOrReplay(const std::string& command, const RunLimits& limits, std::vector<std::string>& output);

}  // namespace kivclaim::host_internal

#endif
