// A recorded machine as a value: its files, and what is known about the making of the recording.
#ifndef KIVCLAIM_TOOLS_RECORDING_RECORDING_H
#define KIVCLAIM_TOOLS_RECORDING_RECORDING_H

#include "machine/copy.h"

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

namespace kivclaim::tools {

// What is wrong with a recording, in a few words that do not name it.
class RecordingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The format that this release writes, and the newest that it reads.
constexpr unsigned int recordingFormat = 1;

constexpr char manifestFile[] = "kivclaim/manifest.json";

// Together, for all files of a recording.
constexpr std::uint64_t mostRecordedBytes = std::uint64_t{1} << 30;
constexpr std::uint64_t mostRecordedFiles = 4'000'000;
constexpr std::size_t deepestRecordedFile = 100;

struct Recording {
    // All but the manifest.
    kivclaim::machine::CopiedFiles files;

    std::string kivclaim;  // the release that made it
    std::string time;      // when, as 2026-11-21T18:20:40Z
    bool isRedacted = false;
    std::map<std::string, std::string> system;    // what uname() said, by the names of its members
    std::map<std::string, std::string> versions;  // of programs, by their paths
};

// Whether a path and, of a link, where it leads, stay within the recording, whatever other links there are. Throws
// RecordingError. A link begins with any number of "../" and has none later.
void checkPath(const std::string& path);
void checkLink(const std::string& path, const std::string& target);

// Whether each of the files is in a directory of the recording. Throws RecordingError.
void checkDirectories(const kivclaim::machine::CopiedFiles& files);

}  // namespace kivclaim::tools

#endif
