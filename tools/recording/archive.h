// Recordings as one file: a tar archive, compressed with zstd, that begins with the manifest.
#ifndef KIVCLAIM_TOOLS_RECORDING_ARCHIVE_H
#define KIVCLAIM_TOOLS_RECORDING_ARCHIVE_H

#include "tools/recording/recording.h"

#include <string>
#include <string_view>

namespace kivclaim::tools {

// Reads and checks all of it; writes nothing. An archive that is not compressed is read, too. Throws RecordingError.
Recording readArchive(const std::string& path);
Recording archiveIn(std::string_view bytes);

// Writes into a file that is there, and to the disk. Throws RecordingError.
void writeArchive(const Recording& recording, const std::string& path);

}  // namespace kivclaim::tools

#endif
