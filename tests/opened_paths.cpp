// Preloaded into a program: writes each path that it opens, or runs, to the descriptor whose number the environment
// variable KIVCLAIM_OPENED_PATHS tells, a line each. What is opened below a directory that is open already is written
// as it is given. The kernel's own way through links is not seen.
#include <dirent.h>
#include <dlfcn.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void note(const char* path)
{
    const char* const number = std::getenv("KIVCLAIM_OPENED_PATHS");
    if (number != nullptr && path != nullptr) {
        dprintf(std::atoi(number), "%s\n", path);
    }
}

template <class Function>
Function next(Function /*likeThis*/, const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

#define NOTED(result, name, parameters, arguments) \
    extern "C" result name parameters              \
    {                                              \
        note(path);                                \
        return next(&(name), #name) arguments;     \
    }

NOTED(FILE*, fopen, (const char* path, const char* mode), (path, mode))
NOTED(DIR*, opendir, (const char* path), (path))
NOTED(int, execve, (const char* path, char* const* words, char* const* environment) noexcept,
      (path, words, environment))
NOTED(int, posix_spawn,
      (pid_t * child, const char* path, const posix_spawn_file_actions_t* actions, const posix_spawnattr_t* attributes,
       char* const* words, char* const* environment),
      (child, path, actions, attributes, words, environment))

#define NOTED_OPEN(name, parameters, last, arguments)                                  \
    extern "C" int name parameters                                                     \
    {                                                                                  \
        va_list rest;                                                                  \
        va_start(rest, last);                                                          \
        const auto mode = va_arg(rest, unsigned int);                                  \
        va_end(rest);                                                                  \
        note(path);                                                                    \
        return reinterpret_cast<int(*) parameters>(dlsym(RTLD_NEXT, #name)) arguments; \
    }

NOTED_OPEN(open, (const char* path, int flags, ...), flags, (path, flags, mode))
NOTED_OPEN(openat, (int directory, const char* path, int flags, ...), flags, (directory, path, flags, mode))

// openat2 has no function of its own.
extern "C" long syscall(long number, ...) noexcept
{
    va_list rest;
    va_start(rest, number);
    long words[6];
    for (long& word : words) {
        word = va_arg(rest, long);
    }
    va_end(rest);
    if (number == SYS_openat2) {
        note(reinterpret_cast<const char*>(words[1]));
    }
    return next(&syscall, "syscall")(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}
