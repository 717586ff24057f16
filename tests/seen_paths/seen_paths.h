// Where a path really leads when some directories are seen in the place of others. Depends on the C library only: it is
// preloaded into whatever program a test runs.
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

// Follows a path as the kernel would if the directories were mounted where they are seen.
class Walk {
public:
    Walk(int directory, const char* path, LastLink lastLink);
    explicit Walk(const char* path) : Walk(AT_FDCWD, path, LastLink::followed) {}

    // What to hand to the system: the path as it was given when it passes no replaced directory.
    const char* path() const { return isElsewhere ? real.text() : given; }
    bool leadsElsewhere() const { return isElsewhere; }
    // Without links and dots, as the process sees it. Only for a path that leads elsewhere.
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
    PathText real;          // the same where it really is
    PathText rest;          // what is still to be walked
    const char* next = "";  // inside `rest`
};

// The path as the process sees it, for one that the kernel told: a current directory, a program.
// False when it is the same.
bool asSeen(const char* realPath, PathText& seen);

}  // namespace seen_paths

#endif
