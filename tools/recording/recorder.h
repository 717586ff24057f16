// Takes a machine along.
#ifndef KIVCLAIM_TOOLS_RECORDING_RECORDER_H
#define KIVCLAIM_TOOLS_RECORDING_RECORDER_H

#include "machine/machine.h"
#include "tools/recording/recording.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace kivclaim::tools {

struct TakenRecording {
    Recording recording;
    std::vector<std::string> gaps;  // what it lacks and why, a line each
};

// Of this machine: its files, its kernel's release, what /sbin/lvdisplay gives, the versions of tools and, for each of
// `disks`, what the volume manager's tools say when they are asked and change nothing. Of a recorded one: its files and
// whatever was recorded of commands. Throws machine::ReadError.
TakenRecording takeRecording(const kivclaim::machine::Root& root, const std::vector<std::string>& disks);

// The first line of what each of this machine's tools says of its version, by the tool's path; only of those that are
// there.
std::map<std::string, std::string> toolVersions();

}  // namespace kivclaim::tools

#endif
