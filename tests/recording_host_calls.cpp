// The C library's calls that the plug-in makes, and ACE's mutex, defined in the test program so that every
// call passes here. While no host plays they do what they always do.
#include "tests/recording_host.h"

#include <ace/OS_NS_Thread.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>

using recording::Host;

namespace {

constexpr int unlimited = -1;

thread_local int lockSuccessesLeft = unlimited;
thread_local int heldLocks = 0;

bool mayGoOn(int& successesLeft)
{
    if (successesLeft == unlimited) {
        return true;
    }
    if (successesLeft == 0) {
        return false;
    }
    --successesLeft;
    return true;
}

}  // namespace

namespace recording {

FailingLocks::FailingLocks(int successes)
{
    lockSuccessesLeft = successes;
}

FailingLocks::~FailingLocks()
{
    lockSuccessesLeft = unlimited;
}

int locksHeld()
{
    return heldLocks;
}

}  // namespace recording

namespace ACE_OS {

int mutex_lock(ACE_mutex_t* mutex)
{
    if (!mayGoOn(lockSuccessesLeft)) {
        errno = EDEADLK;
        return -1;
    }
    ++heldLocks;
    return pthread_mutex_lock(mutex) == 0 ? 0 : -1;
}

int mutex_unlock(ACE_mutex_t* mutex)
{
    --heldLocks;
    return pthread_mutex_unlock(mutex) == 0 ? 0 : -1;
}

}  // namespace ACE_OS

extern "C" {

int uname(utsname* name)
{
    Host* const host = Host::current();
    if (host == nullptr) {
        return static_cast<int>(syscall(SYS_uname, name));
    }
    host->write("uname");
    *name = {};
    std::snprintf(name->release, sizeof name->release, "%s", host->release().c_str());
    return 0;
}

int open(const char* path, int flags, ...)
{
    Host* const host = Host::current();
    if (host == nullptr) {
        va_list arguments;
        va_start(arguments, flags);
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
        va_end(arguments);
        return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    }
    EXPECT_EQ(flags, O_RDONLY) << path;
    const bool exists = host->hasDevice(path);
    host->write("open " + std::string(path) + (exists ? ": yes" : ": no"));
    if (!exists) {
        errno = ENOENT;
        return -1;
    }
    return host->openDescriptor(path);
}

int close(int descriptor)
{
    Host* const host = Host::current();
    if (host != nullptr && host->closeDescriptor(descriptor)) {
        return 0;
    }
    return static_cast<int>(syscall(SYS_close, descriptor));
}

int access(const char* path, int mode) noexcept
{
    Host* const host = Host::current();
    if (host == nullptr) {
        return static_cast<int>(syscall(SYS_faccessat, AT_FDCWD, path, mode));
    }
    EXPECT_EQ(mode, X_OK) << path;
    const bool executable = host->hasExecutable(path);
    host->write("access " + std::string(path) + (executable ? ": yes" : ": no"));
    if (!executable) {
        errno = EACCES;
        return -1;
    }
    return 0;
}

unsigned int sleep(unsigned int seconds)
{
    Host* const host = Host::current();
    if (host == nullptr) {
        ADD_FAILURE() << "a test must not sleep";
        return 0;
    }
    host->write("sleep " + std::to_string(seconds));
    return 0;
}

}  // extern "C"
