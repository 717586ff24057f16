// The C library's functions that the plug-in calls, and those of ACE's mutex, defined in the test program so that every
// call comes here. While no mock host exists, they behave as usual.
#include "testkit/recording_host.h"

#include <string>

#include <ace/OS_NS_Thread.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>

using kivclaim::testkit::Host;

namespace {

constexpr int unlimited = -1;

thread_local int lockSuccessesLeft = unlimited;
thread_local int heldLocks = 0;
thread_local bool oneFailureOnly = false;

// One pause, which a signal may interrupt.
unsigned int interrupted(Host& host, unsigned int seconds)
{
    const long whole = static_cast<long>(seconds) * 1000;
    if (whole <= host.signalMilliseconds) {
        host.clockMilliseconds += whole;
        return 0;
    }
    host.clockMilliseconds += host.signalMilliseconds;
    errno = host.errnoOfPauses;
    return static_cast<unsigned int>((whole - host.signalMilliseconds) / 1000);
}

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

namespace kivclaim::testkit {

FailingLocks::FailingLocks(int successes)
{
    lockSuccessesLeft = successes;
}

FailingLocks::~FailingLocks()
{
    lockSuccessesLeft = unlimited;
}

OneFailingLock::OneFailingLock(int successes)
{
    lockSuccessesLeft = successes;
    oneFailureOnly = true;
}

OneFailingLock::~OneFailingLock()
{
    lockSuccessesLeft = unlimited;
    oneFailureOnly = false;
}

bool OneFailingLock::hasFailed()
{
    return lockSuccessesLeft == unlimited;
}

void playCalls()
{
}

int locksHeld()
{
    return heldLocks;
}

}  // namespace kivclaim::testkit

namespace ACE_OS {

int mutex_lock(ACE_mutex_t* mutex)
{
    if (!mayGoOn(lockSuccessesLeft)) {
        lockSuccessesLeft = oneFailureOnly ? unlimited : 0;
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

// The C library's headers name the parameters in a way that is reserved for it.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int uname(utsname* name)
{
    Host* const host = Host::current();
    if (host == nullptr) {
        return static_cast<int>(syscall(SYS_uname, name));
    }
    const kivclaim::testkit::InsideHost inside;
    host->write("uname");
    if (host->unameFails) {
        errno = EFAULT;
        return -1;
    }
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
        // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): clang-tidy 14 does not see va_start.
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
        va_end(arguments);
        return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    }
    const kivclaim::testkit::InsideHost inside;
    if (flags != O_RDONLY) {
        kivclaim::testkit::fail("[" + std::string(path) + "] is opened with flags " + std::to_string(flags));
    }
    const bool exists = host->openError == 0 && host->hasDevice(path);
    host->write("open " + std::string(path) + (exists ? ": yes" : ": no"));
    if (!exists) {
        errno = host->openError != 0 ? host->openError : ENOENT;
        return -1;
    }
    return host->openDescriptor(path);
}

int close(int descriptor)
{
    pthread_testcancel();  // like the C library's
    const kivclaim::testkit::InsideHost inside;
    Host* const host = Host::current();
    if (host != nullptr && descriptor < 0) {
        kivclaim::testkit::fail("a descriptor is closed that was not open");
    }
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
    const kivclaim::testkit::InsideHost inside;
    if (mode != X_OK) {
        kivclaim::testkit::fail("[" + std::string(path) + "] is tested for access " + std::to_string(mode));
    }
    const bool executable = host->hasExecutable(path);
    host->write("access " + std::string(path) + (executable ? ": yes" : ": no"));
    if (!executable) {
        errno = EACCES;
        return -1;
    }
    return 0;
}

int clock_gettime(clockid_t clock, timespec* now) noexcept
{
    const Host* const host = Host::current();
    if (host == nullptr || host->signalMilliseconds == 0 || clock != CLOCK_MONOTONIC) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    }
    now->tv_sec = host->clockMilliseconds / 1000;
    now->tv_nsec = host->clockMilliseconds % 1000 * 1000000;
    return 0;
}

unsigned int sleep(unsigned int seconds)
{
    Host* const host = Host::current();
    if (host == nullptr) {
        kivclaim::testkit::fail("a test must not sleep");
        return 0;
    }
    const kivclaim::testkit::InsideHost inside;
    host->write("sleep " + std::to_string(seconds));
    if (host->signalMilliseconds != 0) {
        return interrupted(*host, seconds);
    }
    if (host->leftOverByPauses.empty()) {
        return 0;
    }
    const unsigned int left = host->leftOverByPauses.front();
    host->leftOverByPauses.erase(host->leftOverByPauses.begin());
    errno = host->errnoOfPauses;
    return left;
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
