#include "tools/recording/replayed_root.h"

#include "tools/exit_status.h"
#include "tools/recording/archive.h"
#include "tools/recording/directory.h"

#include <sys/stat.h>

namespace kivclaim::tools {

ReplayedRoot::ReplayedRoot(const std::string& path) : path(path)
{
    struct stat status {};
    // Missing files are reported by the code that reads them.
    if (::stat(path.c_str(), &status) != 0) {
        return;
    }
    const bool isDirectory = S_ISDIR(status.st_mode);
    try {
        if (!isDirectory) {
            const Recording recording = readArchive(path);
            unpacked.emplace(Scratch::directory());
            writeDirectory(recording, unpacked->path());
        } else if (hasManifest(path)) {
            static_cast<void>(readDirectory(path));
        }
    } catch (const RecordingError& error) {
        throw CommandError("cannot use the recording '" + path + "': " + error.what() +
                           (isDirectory ? "; record anew, or remove its manifest to take it as it is"
                                        : "; take one that 'kivclaim record' made"));
    }
}

}  // namespace kivclaim::tools
