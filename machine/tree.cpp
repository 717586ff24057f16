#include "machine/tree.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>
#include <vector>

namespace kivclaim::machine {

namespace {

constexpr const char* topPaths[] = {"sys", "dev", "proc", "run/udev/data"};
constexpr int mostLinks = 40;  // as the kernel's
// The kernel asks to try again when anything on the machine was renamed or mounted while it went through a "..".
constexpr int mostAttempts = 100;
// A file of a recorded root may be anything, such as a FIFO without a writer.
constexpr int harmless = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;

Descriptor confinedByKernel(int directory, const char* name, int flags, unsigned long long resolve)
{
    open_how how{};
    how.flags = static_cast<unsigned>(flags);
    how.resolve = resolve | RESOLVE_NO_MAGICLINKS;
    long file = -1;
    int attempts = mostAttempts;
    do {
        file = syscall(SYS_openat2, directory, name, &how, sizeof how);
    } while (file < 0 && errno == EAGAIN && --attempts > 0);
    return Descriptor(static_cast<int>(file));
}

// Old kernels lack openat2, and the filters of old containers refuse it.
bool openat2Works(int directory)
{
    return confinedByKernel(directory, ".", O_PATH | O_CLOEXEC, RESOLVE_IN_ROOT).isOpen() ||
           (errno != ENOSYS && errno != EPERM);
}

// Whether a path without links is already in its final form: absolute, without ".", ".." and empty names.
bool isPlain(std::string_view path)
{
    constexpr auto npos = std::string_view::npos;
    return !path.empty() && path.front() == '/' && path.back() != '/' && path.back() != '.' &&
           path.find("//") == npos && path.find("/./") == npos && path.find("/../") == npos;
}

// Follows a path name by name, as the kernel would with the root directory as "/".
class Walk {
public:
    Walk(int root, std::string_view path) : root(root) { push(path); }

    // Of this process: names at the top are opened by whole paths, as by the live tree.
    void beginAtSlash() { beginsAtSlash = true; }
    void tellLinks(const Tree::OnLink& receiver) { onLink = receiver; }

    void go()
    {
        while (!pending.empty()) {
            const std::string name = std::move(pending.back());
            pending.pop_back();
            if (name != "." && name != "..") {
                enter(name);
                continue;
            }
            if (!isDirectory) {
                fail(ENOTDIR);
            }
            if (name == "..") {
                leave();
            }
        }
    }

    std::string path() const
    {
        std::string text;
        for (const std::string& name : names) {
            text += "/" + name;
        }
        return text.empty() ? "/" : text;
    }

    // Where the last name is, with the directory that holds it.
    int parent() const { return descriptors.size() < 2 ? root : descriptors[descriptors.size() - 2].get(); }
    int last() const { return descriptors.empty() ? root : descriptors.back().get(); }
    const char* lastName() const { return names.empty() ? "." : names.back().c_str(); }
    int failure() const { return error; }

private:
    void push(std::string_view path)
    {
        // "sda/" is a directory, or an error.
        if (!path.empty() && path.back() == '/') {
            pending.emplace_back(".");
        }
        std::size_t end = path.size();
        while (end != std::string_view::npos && end > 0) {
            const std::size_t slash = path.rfind('/', end - 1);
            const std::size_t begin = slash == std::string_view::npos ? 0 : slash + 1;
            if (begin < end) {
                pending.emplace_back(path.substr(begin, end - begin));
            }
            end = slash;
        }
    }

    void leave()
    {
        if (!names.empty()) {
            names.pop_back();
            descriptors.pop_back();
        }
        isDirectory = true;
    }

    void enter(const std::string& name)
    {
        constexpr int flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
        const bool isWhole = beginsAtSlash && names.empty();
        Descriptor next(error != 0 ? -1
                        : isWhole  ? ::open(("/" + name).c_str(), flags)
                                   : ::openat(last(), name.c_str(), flags));
        struct stat status {};
        if (!next.isOpen() || ::fstat(next.get(), &status) != 0) {
            fail(errno);
        } else if (S_ISLNK(status.st_mode)) {
            followLink(name, next.get());
            return;
        }
        isDirectory = !next.isOpen() || S_ISDIR(status.st_mode);
        names.push_back(name);
        descriptors.push_back(std::move(next));
    }

    void followLink(const std::string& name, int link)
    {
        char target[PATH_MAX];
        const ssize_t length = ::readlinkat(link, "", target, sizeof target);
        if (length <= 0 || ++links > mostLinks) {
            fail(length <= 0 ? ENOENT : ELOOP);
            return;
        }
        const std::string_view text(target, static_cast<std::size_t>(length));
        if (onLink) {
            onLink((path() + "/" + name).substr(names.empty() ? 2 : 1), std::string(text));
        }
        if (text.front() == '/') {
            names.clear();
            descriptors.clear();
            isDirectory = true;
        }
        push(text);
    }

    // The first failure counts; the names after it are still joined.
    void fail(int reason)
    {
        if (error == 0) {
            error = reason != 0 ? reason : ENOENT;
        }
    }

    int root;
    Tree::OnLink onLink;
    int links = 0;
    int error = 0;
    bool beginsAtSlash = false;
    bool isDirectory = true;           // what the last name is, as far as it is known
    std::vector<std::string> pending;  // the next one last
    std::vector<std::string> names;
    std::vector<Descriptor> descriptors;  // of each of `names`
};

}  // namespace

Tree::Tree(const Root& where, bool kernelConfines)
    : live(where.isLive()), isSlash(where.path() == "/"), kernelConfines(kernelConfines)
{
    if (live) {
        // Through the C library, whole paths first: a library that plays another machine to this process sees them.
        for (std::size_t i = 0; i < std::size(topPaths); ++i) {
            const std::string path = std::string("/") + topPaths[i];
            tops[i] = Descriptor(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        }
        return;
    }
    root = Descriptor(::open(where.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!root.isOpen()) {
        throw ReadError("cannot open the directory " + where.name() + ": " + std::strerror(errno));
    }
    this->kernelConfines = kernelConfines && openat2Works(root.get());
}

Descriptor Tree::openConfined(const std::string& path, int flags) const
{
    if (kernelConfines) {
        Descriptor file = confinedByKernel(root.get(), path.c_str(), flags, RESOLVE_IN_ROOT);
        if (file.isOpen() || errno != EAGAIN) {
            return file;
        }
    }
    Walk walk(root.get(), path);
    walk.go();
    if (walk.failure() != 0) {
        errno = walk.failure();
        return Descriptor();
    }
    return Descriptor(::openat(walk.parent(), walk.lastName(), flags | O_NOFOLLOW));
}

void Tree::note(Top top, const std::string& name, int flags) const
{
    if (witness) {
        const bool isListing = (flags & O_DIRECTORY) != 0 && (flags & O_PATH) == 0;
        witness(std::string(topPaths[static_cast<std::size_t>(top)]) + (name.empty() ? "" : "/") + name, isListing);
    }
}

Descriptor Tree::open(Top top, const std::string& name, int flags) const
{
    note(top, name, flags);
    const auto index = static_cast<std::size_t>(top);
    if (live) {
        return Descriptor(::openat(tops[index].get(), name.empty() ? "." : name.c_str(), flags | O_CLOEXEC));
    }
    return openConfined(std::string(topPaths[index]) + "/" + name,
                        flags | ((flags & O_PATH) != 0 ? O_CLOEXEC : harmless));
}

Descriptor Tree::openBelow(int directory, const char* name, int flags) const
{
    if (live) {
        return Descriptor(::openat(directory, name, flags | O_CLOEXEC));
    }
    flags |= (flags & O_PATH) != 0 ? O_CLOEXEC : harmless;
    if (kernelConfines) {
        return confinedByKernel(directory, name, flags, RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH);
    }
    if (std::strchr(name, '/') == nullptr) {
        return Descriptor(::openat(directory, name, flags | O_NOFOLLOW));
    }
    errno = ELOOP;
    return Descriptor();
}

Descriptor Tree::openAnywhere(const std::string& path, int flags) const
{
    return openConfined(path, flags | ((flags & O_PATH) != 0 ? O_CLOEXEC : harmless));
}

std::optional<Destination> Tree::followWithoutLinks(const std::string& path) const
{
    if (!kernelConfines || !isPlain(path)) {
        return std::nullopt;
    }
    Destination destination;
    destination.path = path;
    const char* const belowRoot = path.c_str() + 1;
    destination.file =
        confinedByKernel(root.get(), belowRoot, O_PATH | O_CLOEXEC, RESOLVE_IN_ROOT | RESOLVE_NO_SYMLINKS);
    // Any other failure may come from a link.
    const bool isKnown = destination.file.isOpen() || errno == ENOENT || errno == ENOTDIR;
    return isKnown ? std::optional<Destination>(std::move(destination)) : std::nullopt;
}

Destination Tree::follow(const std::string& path, const OnLink& onLink) const
{
    // Most paths have no link, and this is one call of the kernel instead of two for each name.
    if (!onLink && !isSlash) {
        if (std::optional<Destination> destination = followWithoutLinks(path)) {
            return std::move(*destination);
        }
    }
    Walk walk(root.get(), path);
    walk.tellLinks(onLink);
    if (isSlash) {
        walk.beginAtSlash();
    }
    walk.go();
    Destination destination;
    destination.path = walk.path();
    destination.circle = walk.failure() == ELOOP;
    if (walk.failure() == 0) {
        destination.file = Descriptor(::openat(walk.parent(), walk.lastName(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    }
    return destination;
}

}  // namespace kivclaim::machine
