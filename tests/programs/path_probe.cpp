// Asks the C library about paths, and prints each answer, or the name of the error, on a line.
//
//     path_probe [QUESTION PATH]...
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <set>
#include <string>

namespace {

using Answer = std::string;

Answer error()
{
    return strerrorname_np(errno);
}

Answer doneOrError(int result)
{
    return result == 0 ? "done" : error();
}

Answer firstLineOf(int descriptor)
{
    if (descriptor < 0) {
        return error();
    }
    char text[100];
    const ssize_t length = ::read(descriptor, text, sizeof text);
    ::close(descriptor);
    if (length < 0) {
        return error();
    }
    const Answer answer(text, static_cast<std::size_t>(length));
    return answer.substr(0, answer.find('\n'));
}

Answer openRelativeTo(const char* path)
{
    const Answer whole = path;
    const std::size_t slash = whole.rfind('/');
    const int directory = ::open(whole.substr(0, slash).c_str(), O_PATH | O_DIRECTORY);
    Answer answer =
        directory < 0 ? error() : firstLineOf(::openat(directory, whole.substr(slash + 1).c_str(), O_RDONLY));
    ::close(directory);
    return answer;
}

Answer readWithStream(const char* path)
{
    std::ifstream stream(path);
    Answer text;
    return std::getline(stream, text) ? text : "nothing";
}

Answer create(const char* path)
{
    ::umask(0);
    const int descriptor = ::open(path, O_WRONLY | O_CREAT | O_EXCL, 0640);
    struct stat status {};
    if (descriptor < 0 || ::fstat(descriptor, &status) != 0) {
        return error();
    }
    ::close(descriptor);
    char mode[20];
    std::snprintf(mode, sizeof mode, "%o", status.st_mode);
    return mode;
}

Answer kindOf(int result, const struct stat& status)
{
    if (result != 0) {
        return error();
    }
    return S_ISDIR(status.st_mode) ? "directory" : S_ISLNK(status.st_mode) ? "link" : "file";
}

Answer stat(const char* path)
{
    struct stat status {};
    return kindOf(::stat(path, &status), status);
}

Answer lstat(const char* path)
{
    struct stat status {};
    return kindOf(::lstat(path, &status), status);
}

Answer list(const char* path)
{
    DIR* const directory = ::opendir(path);
    if (directory == nullptr) {
        return error();
    }
    std::set<Answer> names;
    while (const dirent* const entry = ::readdir(directory)) {
        names.insert(entry->d_name);
    }
    ::closedir(directory);
    Answer answer;
    for (const Answer& name : names) {
        answer += answer.empty() ? name : " " + name;
    }
    return answer;
}

Answer readlink(const char* path)
{
    char text[PATH_MAX];
    const ssize_t length = ::readlink(path, text, sizeof text);
    return length < 0 ? error() : Answer(text, static_cast<std::size_t>(length));
}

Answer realpath(const char* path)
{
    char text[PATH_MAX];
    return ::realpath(path, text) == nullptr ? error() : text;
}

Answer currentDirectory(const char*)
{
    char text[PATH_MAX];
    return ::getcwd(text, sizeof text) == nullptr ? error() : text;
}

Answer statusOf(pid_t child)
{
    int status = 0;
    ::waitpid(child, &status, 0);
    return "status " + std::to_string(WEXITSTATUS(status));
}

Answer run(const char* name, const std::function<void(const char*, char**)>& execute)
{
    char word[] = "word";
    char* arguments[] = {word, nullptr};
    std::cout.flush();
    const pid_t child = ::fork();
    if (child == 0) {
        execute(name, arguments);
        std::cout << error() << " ";
        std::cout.flush();
        ::_exit(127);
    }
    return statusOf(child);
}

Answer spawn(const char* name, decltype(&::posix_spawn) start)
{
    char word[] = "word";
    char* arguments[] = {word, nullptr};
    pid_t child = 0;
    std::cout.flush();
    errno = start(&child, name, nullptr, nullptr, arguments, environ);
    return errno != 0 ? error() : statusOf(child);
}

// A call that succeeds does not change it.
Answer errorAfterSuccess(const char* path)
{
    errno = EXDEV;
    return ::access(path, F_OK) == 0 ? error() : "no success";
}

const std::map<std::string, std::function<Answer(const char*)>> questions = {
    {"open", [](const char* path) { return firstLineOf(::open(path, O_RDONLY)); }},
    {"open-no-link", [](const char* path) { return firstLineOf(::open(path, O_RDONLY | O_NOFOLLOW)); }},
    {"openat", openRelativeTo},
    {"stream", readWithStream},
    {"create", create},
    {"stat", stat},
    {"lstat", lstat},
    {"may-run", [](const char* path) { return doneOrError(::access(path, X_OK)); }},
    {"errno-after", errorAfterSuccess},
    {"list", list},
    {"readlink", readlink},
    {"realpath", realpath},
    {"chdir", [](const char* path) { return doneOrError(::chdir(path)); }},
    {"getcwd", currentDirectory},
    {"execv", [](const char* path) { return run(path, ::execv); }},
    {"execvp", [](const char* name) { return run(name, ::execvp); }},
    {"spawn", [](const char* path) { return spawn(path, ::posix_spawn); }},
    {"spawnp", [](const char* name) { return spawn(name, ::posix_spawnp); }},
    {"mkdir", [](const char* path) { return doneOrError(::mkdir(path, 0700)); }},
    {"rmdir", [](const char* path) { return doneOrError(::rmdir(path)); }},
    {"unlink", [](const char* path) { return doneOrError(::unlink(path)); }},
};

}  // namespace

int main(int count, char** words)
{
    for (int i = 1; i + 1 < count; i += 2) {
        // Asked before anything is printed, so that the output of a program that is run comes before its answer.
        const Answer answer = questions.at(words[i])(words[i + 1]);
        std::cout << answer << std::endl;
    }
    return 0;
}
