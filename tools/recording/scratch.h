// A temporary file or directory that does not outlive the process, however that ends.
#ifndef KIVCLAIM_TOOLS_RECORDING_SCRATCH_H
#define KIVCLAIM_TOOLS_RECORDING_SCRATCH_H

#include <sys/types.h>

#include <string>

namespace kivclaim::tools {

// What for: a name that is removed, with everything in it, when the object ends, and when the process is killed: a
// child process waits for that.
// Threads: made while the process has one. Ownership: owns what has its path, until that has another name.
// Failure: RecordingError when there can be none.
class Scratch {
public:
    // An empty directory for this user alone, where temporary files are.
    static Scratch directory();
    // An empty directory, or file, for this user alone beside `path`.
    static Scratch directoryBeside(const std::string& path);
    static Scratch fileBeside(const std::string& path);

    Scratch(Scratch&& other) noexcept;
    Scratch& operator=(Scratch&&) = delete;
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch();

    const std::string& path() const { return place; }

private:
    Scratch(const std::string& form, bool isDirectory);

    std::string place;
    pid_t remover = -1;
    int alive = -1;  // closed by the kernel when this process ends
};

}  // namespace kivclaim::tools

#endif
