// The files of a recorded machine, whatever they are about.
#ifndef KIVCLAIM_MACHINE_RECORDED_FILES_H
#define KIVCLAIM_MACHINE_RECORDED_FILES_H

#include "machine/machine.h"

#include <memory>
#include <optional>
#include <string>

namespace kivclaim::machine {

class Tree;

// What for: files beside those that the model reads. Paths begin at the root of the recorded machine, with a slash or
// without, and links are followed within it.
// Threads: any. Ownership: keeps the root open. Failure: ReadError, with one line that names the file.
class RecordedFiles {
public:
    // `root` is a recorded one. Throws ReadError when it cannot be opened.
    explicit RecordedFiles(const Root& root);
    ~RecordedFiles();
    RecordedFiles(const RecordedFiles&) = delete;
    RecordedFiles& operator=(const RecordedFiles&) = delete;

    // The name of a file of the root in messages.
    std::string pathOf(const std::string& path) const { return shownName + "/" + path; }

    // The whole content; nothing when there is no such file. Throws ReadError for one that cannot be read, is no
    // regular file, or is longer than `longest` bytes, which are 16 MiB at most.
    std::optional<std::string> content(const std::string& path, std::size_t longest) const;

    // Whether an executable file exists there.
    bool isExecutable(const std::string& path) const;

private:
    std::string shownName;
    std::unique_ptr<Tree> tree;
};

}  // namespace kivclaim::machine

#endif
