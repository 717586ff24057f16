// A descriptor that is closed by its owner. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_FILE_DESCRIPTOR_H
#define KIVCLAIM_HOST_RUNNER_FILE_DESCRIPTOR_H

#include <unistd.h>

namespace kivclaim::host_internal {

// Threads: one at a time.
// Ownership: the only owner of its descriptor; -1 is none. Moving leaves the source empty.
// Failure: none. Errors of close() are ignored: nothing is written through these descriptors, and on Linux the
// descriptor is closed even when close() was interrupted.
class FileDescriptor {
public:
    explicit FileDescriptor(int owned = -1) : number(owned) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~FileDescriptor() { reset(); }

    int get() const { return number; }
    bool isOpen() const { return number >= 0; }

    int release()
    {
        const int released = number;
        number = -1;
        return released;
    }

    void reset(int newlyOwned = -1)
    {
        if (number >= 0) {
            ::close(number);
        }
        number = newlyOwned;
    }

private:
    int number;
};

}  // namespace kivclaim::host_internal

#endif
