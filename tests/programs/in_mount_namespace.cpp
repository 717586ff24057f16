// Runs a program that sees a directory at the place of another: mounts it there in a new mount namespace.
//
//     in_mount_namespace DIRECTORY PATH PROGRAM [ARGUMENT...]
//
// Exits with 125, with the reason on standard error, when the kernel refuses.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void require(bool isDone, const char* what)
{
    if (!isDone) {
        std::perror(what);
        std::exit(125);
    }
}

void write(const char* path, const std::string& text)
{
    const int descriptor = ::open(path, O_WRONLY);
    require(descriptor >= 0 && ::write(descriptor, text.data(), text.size()) >= 0, path);
    ::close(descriptor);
}

// An ordinary user becomes root inside a user namespace.
void enterNamespace()
{
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    if (user == 0) {
        require(::unshare(CLONE_NEWNS) == 0, "unshare");
        return;
    }
    require(::unshare(CLONE_NEWNS | CLONE_NEWUSER) == 0, "unshare");
    write("/proc/self/setgroups", "deny");
    write("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    write("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

}  // namespace

int main(int count, char** words)
{
    if (count < 4) {
        std::fputs("usage: in_mount_namespace DIRECTORY PATH PROGRAM [ARGUMENT...]\n", stderr);
        return 2;
    }
    enterNamespace();
    require(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount");
    require(::mount(words[1], words[2], nullptr, MS_BIND, nullptr) == 0, "mount");
    ::execvp(words[3], words + 3);
    std::perror(words[3]);
    return 127;
}
