#include "tests/seen_paths/seen_paths.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace seen_paths {

namespace {

struct Replacement {
    const char* path;       // as the process sees it
    const char* directory;  // where it really is
};

constexpr int mostLinks = 40;  // as the kernel's
constexpr int mostReplacements = 16;
Replacement replacements[mostReplacements];
int replacementCount = 0;

// Lines "path=directory" of the environment variable, copied: a program may overwrite its environment. What runs
// earlier than this, the loader and the sanitizers' start, sees the machine as it is.
__attribute__((constructor)) void readReplacements()
{
    static char lines[mostReplacements * PATH_MAX];
    const char* const setting = std::getenv("KIVCLAIM_SEEN_PATHS");
    if (setting == nullptr) {
        return;
    }
    const std::size_t size = std::strlen(setting) + 1;
    if (size > sizeof lines) {
        std::fputs("seen_paths: KIVCLAIM_SEEN_PATHS is too long\n", stderr);
        std::abort();
    }
    std::memcpy(lines, setting, size);
    char* position = nullptr;
    for (char* line = strtok_r(lines, "\n", &position); line != nullptr; line = strtok_r(nullptr, "\n", &position)) {
        char* const equals = std::strchr(line, '=');
        if (equals == nullptr || replacementCount == mostReplacements) {
            std::fprintf(stderr, "seen_paths: '%s' is one line too many, or not PATH=DIRECTORY\n", line);
            std::abort();
        }
        *equals = '\0';
        replacements[replacementCount++] = {line, equals + 1};
    }
}

bool isAtOrBelow(const char* path, const char* directory)
{
    const std::size_t length = std::strlen(directory);
    return std::strncmp(path, directory, length) == 0 && (path[length] == '\0' || path[length] == '/');
}

// The most specific replacement that has the path at or below its `end`; null when none has.
const Replacement* find(const char* path, const char* Replacement::*end)
{
    const Replacement* found = nullptr;
    for (int i = 0; i < replacementCount; ++i) {
        const Replacement& candidate = replacements[i];
        if (isAtOrBelow(path, candidate.*end) &&
            (found == nullptr || std::strlen(candidate.*end) > std::strlen(found->*end))) {
            found = &candidate;
        }
    }
    return found;
}

// Straight to the kernel: another preloaded library must not answer for these.
bool currentDirectory(int directory, char* text, std::size_t size)
{
    if (directory == AT_FDCWD) {
        return ::syscall(SYS_getcwd, text, size) > 0 && *text == '/';
    }
    char link[32];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", directory);
    const long length = ::syscall(SYS_readlinkat, AT_FDCWD, link, text, size - 1);
    text[std::max(length, 0L)] = '\0';
    return *text == '/';
}

}  // namespace

void PathText::clear()
{
    cut(0);
}

void PathText::set(const char* newText, std::size_t newLength)
{
    clear();
    append(newText, newLength);
}

void PathText::append(const char* more, std::size_t moreLength)
{
    if (moreLength >= sizeof characters - used) {
        overflowed = true;
        return;
    }
    std::memmove(characters + used, more, moreLength);
    cut(used + moreLength);
}

void PathText::append(const char* more)
{
    append(more, std::strlen(more));
}

void PathText::cut(std::size_t newLength)
{
    used = newLength;
    characters[used] = '\0';
}

Walk::Walk(int directory, const char* path, LastLink lastLink) : given(path)
{
    if (replacementCount == 0 || path == nullptr || *path == '\0') {
        return;
    }
    const int error = errno;
    rest.set(path, std::strlen(path));
    next = rest.text();
    PathText name;
    bool isKnown = start(directory);
    while (isKnown && !hasStopped && takeName(name)) {
        step(name, lastLink);
    }
    if (isElsewhere && real.length() == 0) {
        real.append("/");
    }
    if (seen.isTooLong() || real.isTooLong() || rest.isTooLong()) {
        isElsewhere = false;  // the kernel refuses the path as it was given
    }
    errno = error;
}

// False when it is not known where the path begins.
bool Walk::start(int directory)
{
    char current[PATH_MAX];
    if (*given == '/') {
        return true;
    }
    if (!currentDirectory(directory, current, sizeof current)) {
        return false;
    }
    isElsewhere = asSeen(current, seen);
    if (!isElsewhere && std::strcmp(current, "/") != 0) {
        seen.append(current);
    }
    findReal();
    return true;
}

bool Walk::takeName(PathText& name)
{
    next += std::strspn(next, "/");
    const std::size_t length = std::strcspn(next, "/");
    name.set(next, length);
    next += length;
    return length > 0;
}

void Walk::step(const PathText& name, LastLink lastLink)
{
    if (std::strcmp(name.text(), "..") == 0) {
        leaveToParent();
    } else if (std::strcmp(name.text(), ".") != 0) {
        enter(name, lastLink);
    }
}

void Walk::enter(const PathText& name, LastLink lastLink)
{
    seen.append("/");
    seen.append(name.text(), name.length());
    findReal();
    isElsewhere = isElsewhere || find(seen.text(), &Replacement::path) != nullptr;
    char target[PATH_MAX];
    const long length = ::syscall(SYS_readlinkat, AT_FDCWD, real.text(), target, sizeof target);
    const bool isLink = length > 0;
    if (isLink && links < mostLinks && (hasMore() || lastLink == LastLink::followed)) {
        followLink(target, static_cast<std::size_t>(length));
    } else if (hasMore() && (isLink || errno != EINVAL || !isDirectory())) {
        leaveTheRestToTheKernel();
    }
}

void Walk::followLink(const char* target, std::size_t length)
{
    ++links;
    PathText longer;
    longer.set(target, length);
    longer.append(next);
    rest = longer;
    next = rest.text();
    if (*target == '/') {
        seen.clear();
        real.clear();
    } else {
        leaveToParent();
    }
}

void Walk::leaveToParent()
{
    const char* const slash = std::strrchr(seen.text(), '/');
    seen.cut(slash == nullptr ? 0 : static_cast<std::size_t>(slash - seen.text()));
    findReal();
}

bool Walk::isDirectory()
{
    PathText inside = real;
    inside.append("/.");
    return ::syscall(SYS_faccessat, AT_FDCWD, inside.text(), F_OK) == 0;
}

// Which then fails as it should.
void Walk::leaveTheRestToTheKernel()
{
    real.append(next);
    hasStopped = true;
}

void Walk::findReal()
{
    const Replacement* const replacement = find(seen.text(), &Replacement::path);
    real.clear();
    real.append(replacement == nullptr ? "" : replacement->directory);
    real.append(seen.text() + (replacement == nullptr ? 0 : std::strlen(replacement->path)));
}

bool asSeen(const char* realPath, PathText& seen)
{
    const Replacement* const replacement = find(realPath, &Replacement::directory);
    if (replacement == nullptr) {
        return false;
    }
    seen.clear();
    seen.append(replacement->path);
    seen.append(realPath + std::strlen(replacement->directory));
    return true;
}

}  // namespace seen_paths
