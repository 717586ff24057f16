// Preloaded into a program, and so into what it starts: shows it directories in the place of others, as mounting them
// there would, without the right to mount. The environment variable KIVCLAIM_SEEN_PATHS has a line PATH=DIRECTORY for
// each; a process sees DIRECTORY at PATH.
//
// Wraps those calls of the C library that the programs under test make, and the shells, tools and compilers that they
// run. Not redirected: what the kernel and the loader look for themselves (the interpreter in a script's first line,
// libraries), and programs that are linked statically or run without the two environment variables. A script that runs
// from a replaced directory has its real path as $0.
#include "tests/seen_paths/seen_paths.h"

#include <dirent.h>
#include <dlfcn.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using seen_paths::asSeen;
using seen_paths::LastLink;
using seen_paths::PathText;
using seen_paths::Walk;

// The function of this name that would be called without this library.
#define NEXT(name) static const auto next = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

// Defines the function of this name and parameters; it calls the next one with these arguments.
#define WRAP(result, name, parameters, arguments) \
    extern "C" result name parameters             \
    {                                             \
        NEXT(name);                               \
        return next arguments;                    \
    }

// Defines `mode`, the last argument of a call that may create a file. If it was not given, it is not read.
#define TAKE_MODE_AFTER_FLAGS                      \
    va_list arguments;                             \
    va_start(arguments, flags);                    \
    const mode_t mode = va_arg(arguments, mode_t); \
    va_end(arguments)

namespace {

LastLink unless(bool isKept)
{
    return isKept ? LastLink::kept : LastLink::followed;
}

LastLink unlessAt(int flags)
{
    return unless((flags & AT_SYMLINK_NOFOLLOW) != 0);
}

Walk walkToLink(const char* path)
{
    return {AT_FDCWD, path, LastLink::kept};
}

Walk walkToOpen(int directory, const char* path, int flags)
{
    constexpr int newFile = O_CREAT | O_EXCL;
    return {directory, path, unless((flags & O_NOFOLLOW) != 0 || (flags & newFile) == newFile)};
}

// As the C library searches for a program. Returns 0 or the error number.
int findProgram(const char* name, PathText& found)
{
    if (std::strchr(name, '/') != nullptr) {
        found.append(Walk(name).path());
        return 0;
    }
    const char* const search = std::getenv("PATH");
    const char* directory = search != nullptr ? search : "/bin:/usr/bin";
    int error = ENOENT;
    while (true) {
        const std::size_t length = std::strcspn(directory, ":");
        PathText candidate;
        candidate.set(length == 0 ? "." : directory, std::max(length, std::size_t{1}));
        candidate.append("/");
        candidate.append(name);
        struct stat status {};
        if (::stat(candidate.text(), &status) == 0 && S_ISREG(status.st_mode)) {
            if (::access(candidate.text(), X_OK) == 0) {
                found.append(Walk(candidate.text()).path());
                return 0;
            }
            error = EACCES;
        }
        if (directory[length] == '\0') {
            return error;
        }
        directory += length + 1;
    }
}

// A link below /proc tells a real path: of a program, or of a current directory.
ssize_t tellLink(const char* path, char* text, size_t size, ssize_t length)
{
    PathText told;
    PathText seen;
    if (length <= 0 || std::strncmp(path, "/proc/", 6) != 0 || static_cast<size_t>(length) == size) {
        return length;
    }
    told.set(text, static_cast<std::size_t>(length));
    if (!asSeen(told.text(), seen)) {
        return length;
    }
    const std::size_t kept = std::min(seen.length(), size);
    std::memcpy(text, seen.text(), kept);
    return static_cast<ssize_t>(kept);
}

char* tellPath(const char* path, char* text, std::size_t size)
{
    const std::size_t needed = std::strlen(path) + 1;
    char* const result = text != nullptr ? text : static_cast<char*>(std::malloc(std::max(size, needed)));
    if (result == nullptr || (text != nullptr && size < needed)) {
        errno = result == nullptr ? ENOMEM : ERANGE;
        return nullptr;
    }
    std::memcpy(result, path, needed);
    return result;
}

}  // namespace

// Looking.
WRAP(int, access, (const char* path, int mode) noexcept, (Walk(path).path(), mode))
WRAP(int, eaccess, (const char* path, int mode) noexcept, (Walk(path).path(), mode))
WRAP(int, euidaccess, (const char* path, int mode) noexcept, (Walk(path).path(), mode))
WRAP(int, faccessat, (int directory, const char* path, int mode, int flags) noexcept,
     (directory, Walk(directory, path, unlessAt(flags)).path(), mode, flags))
WRAP(int, stat, (const char* path, struct stat* status) noexcept, (Walk(path).path(), status))
WRAP(int, stat64, (const char* path, struct stat64* status) noexcept, (Walk(path).path(), status))
WRAP(int, lstat, (const char* path, struct stat* status) noexcept, (walkToLink(path).path(), status))
WRAP(int, lstat64, (const char* path, struct stat64* status) noexcept, (walkToLink(path).path(), status))
WRAP(int, fstatat, (int directory, const char* path, struct stat* status, int flags) noexcept,
     (directory, Walk(directory, path, unlessAt(flags)).path(), status, flags))
WRAP(int, fstatat64, (int directory, const char* path, struct stat64* status, int flags) noexcept,
     (directory, Walk(directory, path, unlessAt(flags)).path(), status, flags))
WRAP(int, statx, (int directory, const char* path, int flags, unsigned int mask, struct statx* status) noexcept,
     (directory, Walk(directory, path, unlessAt(flags)).path(), flags, mask, status))
WRAP(DIR*, opendir, (const char* path), (Walk(path).path()))

extern "C" ssize_t readlink(const char* path, char* text, size_t size) noexcept
{
    NEXT(readlink);
    return tellLink(path, text, size, next(walkToLink(path).path(), text, size));
}

extern "C" ssize_t readlinkat(int directory, const char* path, char* text, size_t size) noexcept
{
    NEXT(readlinkat);
    return tellLink(path, text, size, next(directory, Walk(directory, path, LastLink::kept).path(), text, size));
}

extern "C" char* realpath(const char* path, char* text) noexcept
{
    NEXT(realpath);
    const Walk walk(path);
    if (!walk.leadsElsewhere()) {
        return next(path, text);
    }
    return ::access(path, F_OK) == 0 ? tellPath(walk.seenPath(), text, PATH_MAX) : nullptr;
}

extern "C" char* canonicalize_file_name(const char* path) noexcept
{
    return ::realpath(path, nullptr);
}

// Opening.
extern "C" int open(const char* path, int flags, ...)
{
    NEXT(open);
    TAKE_MODE_AFTER_FLAGS;
    return next(walkToOpen(AT_FDCWD, path, flags).path(), flags, mode);
}

extern "C" int open64(const char* path, int flags, ...)
{
    NEXT(open64);
    TAKE_MODE_AFTER_FLAGS;
    return next(walkToOpen(AT_FDCWD, path, flags).path(), flags, mode);
}

extern "C" int openat(int directory, const char* path, int flags, ...)
{
    NEXT(openat);
    TAKE_MODE_AFTER_FLAGS;
    return next(directory, walkToOpen(directory, path, flags).path(), flags, mode);
}

extern "C" int openat64(int directory, const char* path, int flags, ...)
{
    NEXT(openat64);
    TAKE_MODE_AFTER_FLAGS;
    return next(directory, walkToOpen(directory, path, flags).path(), flags, mode);
}

WRAP(int, creat, (const char* path, mode_t mode), (Walk(path).path(), mode))
WRAP(int, creat64, (const char* path, mode_t mode), (Walk(path).path(), mode))
WRAP(FILE*, fopen, (const char* path, const char* mode), (Walk(path).path(), mode))
WRAP(FILE*, fopen64, (const char* path, const char* mode), (Walk(path).path(), mode))
WRAP(FILE*, freopen, (const char* path, const char* mode, FILE* file), (Walk(path).path(), mode, file))
WRAP(FILE*, freopen64, (const char* path, const char* mode, FILE* file), (Walk(path).path(), mode, file))

// The current directory.
WRAP(int, chdir, (const char* path) noexcept, (Walk(path).path()))

extern "C" char* getcwd(char* text, size_t size) noexcept
{
    NEXT(getcwd);
    char current[PATH_MAX];
    PathText seen;
    if (next(current, sizeof current) == nullptr || !asSeen(current, seen)) {
        return next(text, size);
    }
    return tellPath(seen.text(), text, size);
}

// Running.
WRAP(int, execve, (const char* path, char* const arguments[], char* const environment[]) noexcept,
     (Walk(path).path(), arguments, environment))
WRAP(int, execv, (const char* path, char* const arguments[]) noexcept, (Walk(path).path(), arguments))

extern "C" int execvpe(const char* name, char* const arguments[], char* const environment[]) noexcept
{
    NEXT(execvpe);
    PathText program;
    errno = findProgram(name, program);
    return errno != 0 ? -1 : next(program.text(), arguments, environment);
}

extern "C" int execvp(const char* name, char* const arguments[]) noexcept
{
    return ::execvpe(name, arguments, environ);
}

WRAP(int, posix_spawn,
     (pid_t * process, const char* path, const posix_spawn_file_actions_t* actions, const posix_spawnattr_t* attributes,
      char* const arguments[], char* const environment[]),
     (process, Walk(path).path(), actions, attributes, arguments, environment))

extern "C" int posix_spawnp(pid_t* process, const char* name, const posix_spawn_file_actions_t* actions,
                            const posix_spawnattr_t* attributes, char* const arguments[], char* const environment[])
{
    PathText program;
    const int error = findProgram(name, program);
    NEXT(posix_spawn);
    return error != 0 ? error : next(process, program.text(), actions, attributes, arguments, environment);
}

// Changing: the machine's own files stay as they are.
WRAP(int, unlink, (const char* path) noexcept, (walkToLink(path).path()))
WRAP(int, unlinkat, (int directory, const char* path, int flags) noexcept,
     (directory, Walk(directory, path, LastLink::kept).path(), flags))
WRAP(int, remove, (const char* path) noexcept, (walkToLink(path).path()))
WRAP(int, rename, (const char* from, const char* to) noexcept, (walkToLink(from).path(), walkToLink(to).path()))
WRAP(int, renameat, (int fromDirectory, const char* from, int toDirectory, const char* to) noexcept,
     (fromDirectory, Walk(fromDirectory, from, LastLink::kept).path(), toDirectory,
      Walk(toDirectory, to, LastLink::kept).path()))
WRAP(int, renameat2,
     (int fromDirectory, const char* from, int toDirectory, const char* to, unsigned int flags) noexcept,
     (fromDirectory, Walk(fromDirectory, from, LastLink::kept).path(), toDirectory,
      Walk(toDirectory, to, LastLink::kept).path(), flags))
WRAP(int, link, (const char* from, const char* to) noexcept, (walkToLink(from).path(), walkToLink(to).path()))
WRAP(int, symlink, (const char* target, const char* path) noexcept, (target, walkToLink(path).path()))
WRAP(int, symlinkat, (const char* target, int directory, const char* path) noexcept,
     (target, directory, Walk(directory, path, LastLink::kept).path()))
WRAP(int, mkdir, (const char* path, mode_t mode) noexcept, (walkToLink(path).path(), mode))
WRAP(int, mkdirat, (int directory, const char* path, mode_t mode) noexcept,
     (directory, Walk(directory, path, LastLink::kept).path(), mode))
WRAP(int, rmdir, (const char* path) noexcept, (walkToLink(path).path()))
WRAP(int, chmod, (const char* path, mode_t mode) noexcept, (Walk(path).path(), mode))
WRAP(int, fchmodat, (int directory, const char* path, mode_t mode, int flags) noexcept,
     (directory, Walk(directory, path, unlessAt(flags)).path(), mode, flags))
WRAP(int, utimensat, (int directory, const char* path, const struct timespec times[2], int flags) noexcept,
     (directory, Walk(directory, path, unlessAt(flags)).path(), times, flags))
