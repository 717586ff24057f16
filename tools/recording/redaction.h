// Recordings that may be shown to others.
#ifndef KIVCLAIM_TOOLS_RECORDING_REDACTION_H
#define KIVCLAIM_TOOLS_RECORDING_REDACTION_H

#include "tools/recording/recording.h"

namespace kivclaim::tools {

// The same machine under other names: those of hosts, groups, volumes, maps and their aliases, links, labels, serial
// numbers, WWIDs and UUIDs are stand-ins, the same one for the same original, and of the same shape, so that every
// answer is the same. Kernel names stay. What the answers do not need is left out where it may hold names: mounts of
// other file systems, unknown properties, and what the volume manager's tools said. Throws nothing of its own.
Recording redacted(const Recording& recording);

}  // namespace kivclaim::tools

#endif
