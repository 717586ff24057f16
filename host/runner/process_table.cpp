#include "host/runner/process_table.h"

#include "host/runner/file_descriptor.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace kivclaim::host_internal {

namespace {

// The first character of the given field; fields are counted as the kernel's manual does, from 3: the state.
const char* fieldOf(const char* state, int number)
{
    const char* field = state;
    for (int i = 3; field != nullptr && i < number; ++i) {
        field = std::strchr(field, ' ');
        field = field != nullptr ? field + 1 : nullptr;
    }
    return field;
}

ProcessState parsed(const char* text)
{
    constexpr int groupField = 5;
    constexpr int startTimeField = 22;
    ProcessState result;
    const char* const nameEnd = std::strrchr(text, ')');  // the program's name may contain anything, even blanks
    const char* const state = nameEnd != nullptr && nameEnd[1] == ' ' ? nameEnd + 2 : nullptr;
    const char* const group = fieldOf(state, groupField);
    const char* const startTime = fieldOf(state, startTimeField);
    if (state != nullptr && group != nullptr && startTime != nullptr) {
        result.isKnown = ProcessState::Known::yes;
        result.state = *state;
        result.group = static_cast<pid_t>(std::strtol(group, nullptr, 10));
        result.startTime = std::strtoull(startTime, nullptr, 10);
    }
    return result;
}

}  // namespace

ProcessState stateOf(pid_t process) noexcept
{
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(process));
    const FileDescriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    char text[1024];
    const ssize_t length = file.isOpen() ? ::read(file.get(), text, sizeof text - 1) : -1;
    if (length <= 0) {
        ProcessState result;
        const bool isGone = errno == ENOENT || errno == ESRCH;
        result.isKnown = isGone ? ProcessState::Known::noSuchProcess : ProcessState::Known::no;
        return result;
    }
    text[length] = '\0';
    return parsed(text);
}

bool hasRunningMembers(pid_t group) noexcept
{
    const std::unique_ptr<DIR, int (*)(DIR*)> processes(::opendir("/proc"), &::closedir);
    if (processes == nullptr) {
        return true;
    }
    bool isAnyThere = false;
    while (const dirent* const entry = ::readdir(processes.get())) {
        const auto process = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
        if (process <= 0) {
            continue;
        }
        isAnyThere = true;
        const ProcessState state = stateOf(process);
        if (state.isKnown == ProcessState::Known::no || (state.isRunning() && state.group == group)) {
            return true;
        }
    }
    return !isAnyThere;  // no process at all: this is not a working /proc
}

}  // namespace kivclaim::host_internal
