// Recordings as directories.
#ifndef KIVCLAIM_TOOLS_RECORDING_DIRECTORY_H
#define KIVCLAIM_TOOLS_RECORDING_DIRECTORY_H

#include "tools/recording/recording.h"

#include <string>

namespace kivclaim::tools {

// Whether a directory says that it is a recording, and not just any directory for --sysroot.
bool hasManifest(const std::string& directory);

// Reads and checks all of it. Throws RecordingError.
Recording readDirectory(const std::string& directory);

// Writes into an empty directory that no other process writes to, with the manifest. Throws RecordingError.
void writeDirectory(const Recording& recording, const std::string& directory);

// Waits until what was written is on the disk. Throws RecordingError.
void syncToDisk(const std::string& directory);

}  // namespace kivclaim::tools

#endif
