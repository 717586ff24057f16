// Replacements of C library functions. The claim library calls them by their names, so it finds those of the program
// that loaded it: claim modules get the recorded machine's answers, other callers the real functions. close() is not
// replaced: what a played machine opened is an ordinary descriptor.
#include "tools/played_calls.h"

#include <dlfcn.h>
#include <linux/fcntl.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdarg>

#define PLAYED_CALL extern "C" __attribute__((visibility("default")))

using namespace kivclaim::tools;

namespace {

// The function of this name that would be called without this file.
template <class Function>
Function next(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

PLAYED_CALL int open(const char* path, int flags, ...)
{
    static const auto real = next<int (*)(const char*, int, ...)>("open");
    mode_t mode = 0;
    if ((flags & (O_CREAT | __O_TMPFILE)) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return isPlayedTo(__builtin_return_address(0)) ? playedOpen(path, flags) : real(path, flags, mode);
}

PLAYED_CALL int access(const char* path, int mode) noexcept
{
    static const auto real = next<int (*)(const char*, int)>("access");
    return isPlayedTo(__builtin_return_address(0)) ? playedAccess(path, mode) : real(path, mode);
}

PLAYED_CALL int uname(utsname* system) noexcept
{
    static const auto real = next<int (*)(utsname*)>("uname");
    return isPlayedTo(__builtin_return_address(0)) ? playedUname(*system) : real(system);
}

// On a recorded machine there is nothing to wait for.
PLAYED_CALL unsigned int sleep(unsigned int seconds)
{
    static const auto real = next<unsigned int (*)(unsigned int)>("sleep");
    return isPlayedTo(__builtin_return_address(0)) ? 0 : real(seconds);
}
