// The manifest of a recording: what it is, and what each file in it must be.
#ifndef KIVCLAIM_TOOLS_RECORDING_MANIFEST_H
#define KIVCLAIM_TOOLS_RECORDING_MANIFEST_H

#include "tools/recording/recording.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace kivclaim::tools {

// What the manifest says about a file.
struct ExpectedFile {
    kivclaim::machine::CopiedFile::Type type = kivclaim::machine::CopiedFile::Type::directory;
    std::uint64_t bytes = 0;  // of a file
    std::string sha256;       // of a file, in hexadecimal
    std::string target;       // of a link
};

// A value: copies share nothing. Threads: any, for reading.
struct Manifest {
    Recording about;  // without files
    std::map<std::string, ExpectedFile> files;

    // Throws RecordingError when a file is not as it must be.
    void check(const std::string& path, const kivclaim::machine::CopiedFile& file) const;
    // Throws RecordingError when `files` lacks one.
    void checkComplete(const kivclaim::machine::CopiedFiles& found) const;
    // How long a file may be. Throws RecordingError for one that it does not know.
    std::uint64_t bytesOf(const std::string& path) const;
};

// Throws RecordingError for a text that is no manifest, one of a newer format, and one of files that no recording
// holds.
Manifest manifestIn(std::string_view text);

std::string manifestOf(const Recording& recording);

}  // namespace kivclaim::tools

#endif
