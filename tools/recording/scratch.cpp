#include "tools/recording/scratch.h"

#include "tools/recording/recording.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace kivclaim::tools {

namespace {

constexpr char pattern[] = ".kivclaim-XXXXXX";

[[noreturn]] void fail(const std::string& path)
{
    throw RecordingError("'" + path + "' cannot be made (" + std::strerror(errno) + ")");
}

// Closes inherited descriptors, so that no reader of a pipe waits for this process.
void closeAllBut(int kept)
{
    const int null = ::open("/dev/null", O_RDWR);
    for (int standard = 0; standard <= 2; ++standard) {
        ::dup2(null, standard);
    }
    if (kept > 3) {
        ::syscall(SYS_close_range, 3U, static_cast<unsigned>(kept - 1), 0U);
    }
    ::syscall(SYS_close_range, static_cast<unsigned>(kept + 1), UINT_MAX, 0U);
}

[[noreturn]] void removeWhenAlone(int alive, const std::string& path)
{
    ::setsid();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) {
        ::signal(signal, SIG_IGN);
    }
    closeAllBut(alive);
    char nothing = 0;
    while (::read(alive, &nothing, 1) < 0 && errno == EINTR) {
    }
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
    ::_exit(0);
}

std::string nameBeside(const std::string& path)
{
    const std::size_t end = path.find_last_not_of('/');
    const std::size_t slash = path.rfind('/', end);
    const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    return directory + (slash == std::string::npos ? "/" : "") + pattern;
}

}  // namespace

Scratch::Scratch(const std::string& form, bool isDirectory) : place(form)
{
    const int file = isDirectory ? -1 : ::mkostemp(place.data(), O_CLOEXEC);
    if (isDirectory ? ::mkdtemp(place.data()) == nullptr : file < 0) {
        fail(form);
    }
    if (file >= 0) {
        ::close(file);
    }
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) == 0 && (remover = ::fork()) >= 0) {
        if (remover == 0) {
            ::close(ends[1]);
            removeWhenAlone(ends[0], place);
        }
        ::close(ends[0]);
        alive = ends[1];
        return;
    }
    std::filesystem::remove_all(place);
    fail(place);
}

Scratch::Scratch(Scratch&& other) noexcept
    : place(std::move(other.place)), remover(std::exchange(other.remover, -1)), alive(std::exchange(other.alive, -1))
{
}

Scratch::~Scratch()
{
    if (remover < 0) {
        return;
    }
    ::close(alive);
    while (::waitpid(remover, nullptr, 0) < 0 && errno == EINTR) {
    }
}

Scratch Scratch::directory()
{
    std::error_code error;
    const std::filesystem::path place = std::filesystem::temp_directory_path(error);
    return {(error ? std::string("/tmp") : place.string()) + "/" + (pattern + 1), true};
}

Scratch Scratch::directoryBeside(const std::string& path)
{
    return {nameBeside(path), true};
}

Scratch Scratch::fileBeside(const std::string& path)
{
    return {nameBeside(path), false};
}

}  // namespace kivclaim::tools
