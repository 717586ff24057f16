// Finds the real path when some directories are seen at the place of others. Depends on the C library only, because it
// is preloaded into any program that a test runs.
#ifndef KIVCLAIM_TESTS_SEEN_PATHS_SEEN_PATHS_H
#define KIVCLAIM_TESTS_SEEN_PATHS_SEEN_PATHS_H

#include <fcntl.h>

#include <climits>
#include <cstddef>

namespace seen_paths {

enum class LastLink { followed, kept };

// A text of limited length, without allocation: the functions that need it are called before the allocator works.
class PathText {
public:
    const char* text() const { return characters; }
    std::size_t length() const { return used; }
    bool isTooLong() const { return overflowed; }
    void clear();
    void set(const char* newText, std::size_t newLength);
    void append(const char* more, std::size_t moreLength);
    void append(const char* more);
    void cut(std::size_t newLength);

private:
    char characters[PATH_MAX] = "";
    std::size_t used = 0;
    bool overflowed = false;
};

// Follows a path as the kernel would if the directories were mounted at these places.
class Walk {
public:
    Walk(int directory, const char* path, LastLink lastLink);
    explicit Walk(const char* path) : Walk(AT_FDCWD, path, LastLink::followed) {}

    // The path for the system call: unchanged if it does not go through a replaced directory.
    const char* path() const { return isElsewhere ? real.text() : given; }
    bool leadsElsewhere() const { return isElsewhere; }
    // The path as the process sees it, without links and dots. Only for a path that was changed.
    const char* seenPath() const { return seen.length() == 0 ? "/" : seen.text(); }

private:
    bool start(int directory);
    bool takeName(PathText& name);
    void step(const PathText& name, LastLink lastLink);
    void enter(const PathText& name, LastLink lastLink);
    void leaveToParent();
    bool isDirectory();
    void followLink(const char* target, std::size_t length);
    void leaveTheRestToTheKernel();
    bool hasMore() const { return *next != '\0'; }
    void findReal();

    const char* given;
    bool isElsewhere = false;
    bool hasStopped = false;
    int links = 0;
    PathText seen;          // so far; empty for the root
    PathText real;          // the real path of the same
    PathText rest;          // the rest, still to be followed
    const char* next = "";  // inside `rest`
};

// For a path from the kernel, such as the current directory or a program: the path as the process sees it. False when
// it is the same.
bool asSeen(const char* realPath, PathText& seen);

}  // namespace seen_paths

#endif
