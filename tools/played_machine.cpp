#include "tools/played_machine.h"

#include "tools/exit_status.h"
#include "tools/list_command.h"
#include "tools/played_calls.h"
#include "tools/recorded_commands.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/eventfd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>

#include <fcntl.h>

using kivclaim::host::CommandOutcome;
using kivclaim::machine::Machine;
using kivclaim::machine::ReadError;
using kivclaim::machine::RecordedFiles;
using kivclaim::machine::Root;

namespace kivclaim::tools {

namespace {

constexpr char releaseFile[] = "proc/sys/kernel/osrelease";
constexpr std::size_t longestRelease = sizeof utsname{}.release - 1;

PlayedMachine* innermost = nullptr;

Machine devicesOf(const Root& root)
{
    try {
        return Machine::read(root, machine::numbers | machine::stacking);
    } catch (const ReadError& error) {
        throw CommandError(std::string(error.what()) + "; --sysroot takes a directory laid out as for lsblk --sysroot");
    }
}

std::string releaseIn(const RecordedFiles& files)
{
    std::string text = files.content(releaseFile, longestRelease + 1).value_or("");
    text.erase(std::find(text.begin(), text.end(), '\n'), text.end());
    return text;
}

struct Search {
    std::uintptr_t address;
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
};

// Called for each file that is loaded; not 0 ends the search.
int compare(dl_phdr_info* file, std::size_t /*size*/, void* data)
{
    Search& search = *static_cast<Search*>(data);
    std::uintptr_t begin = UINTPTR_MAX;
    std::uintptr_t end = 0;
    for (std::size_t i = 0; i < file->dlpi_phnum; ++i) {
        const ElfW(Phdr)& part = file->dlpi_phdr[i];
        if (part.p_type == PT_LOAD) {
            begin = std::min<std::uintptr_t>(begin, file->dlpi_addr + part.p_vaddr);
            end = std::max<std::uintptr_t>(end, file->dlpi_addr + part.p_vaddr + part.p_memsz);
        }
    }
    if (search.address < begin || search.address >= end) {
        return 0;
    }
    search.begin = begin;
    search.end = end;
    return 1;
}

// What `call` throws becomes a failed call with this error number.
template <class Call>
int withoutExceptions(Call call) noexcept
{
    try {
        return call();
    } catch (...) {
        errno = ENOMEM;
        return -1;
    }
}

int fail(int error)
{
    errno = error;
    return -1;
}

}  // namespace

PlayedMachine::PlayedMachine(const Root& root, const Machine* known)
    : own(known == nullptr ? std::optional<Machine>(devicesOf(root)) : std::nullopt),
      machine(known == nullptr ? *own : *known),
      files(root),
      replay([this](const std::string& command) { return outcomeOf(command); }),
      outer(innermost)
{
    try {
        release = releaseIn(files);
        // An invalid recorded outcome must not be taken for a missing one.
        static_cast<void>(recordedOutcome(files, listCommand));
    } catch (const ReadError& error) {
        throw CommandError(error.what());
    }
    // Not an object's table for the claim library: this program may have got copies of its tables and data.
    playToFileWith(dlsym(RTLD_NEXT, "kivclaim_release_identification"));
    innermost = this;
}

PlayedMachine::~PlayedMachine()
{
    innermost = outer;
}

void PlayedMachine::playToFileWith(const void* address)
{
    Search search{reinterpret_cast<std::uintptr_t>(address)};
    if (dl_iterate_phdr(compare, &search) != 0) {
        audience.push_back({search.begin, search.end});
    }
}

void PlayedMachine::playTo(const CKivDeviceClaimBase& module)
{
    // The table of an object's virtual functions is in the file of its class.
    playToFileWith(*reinterpret_cast<const void* const*>(&module));
}

bool PlayedMachine::canBeOpened(const std::string& path) const
{
    return machine.canBeOpened(path);
}

bool PlayedMachine::knows(const std::string& command) const
{
    try {
        return recordedOutcome(files, command).has_value() || wasMissing(files, command);
    } catch (const ReadError&) {
        return false;
    }
}

bool PlayedMachine::lacks(const std::string& command) const
{
    return wasMissing(files, command);
}

std::string PlayedMachine::takeMissing()
{
    std::string text;
    for (const std::string& each : missing) {
        text += (text.empty() ? "" : " and ") + each;
    }
    missing.clear();
    return text;
}

std::optional<CommandOutcome> PlayedMachine::outcomeOf(const std::string& command)
{
    std::string problem;
    std::optional<CommandOutcome> outcome = outcomeOf(command, problem);
    if (!problem.empty()) {
        missing.insert(problem);
    }
    return outcome;
}

std::optional<CommandOutcome> PlayedMachine::outcomeOf(const std::string& command, std::string& problem) const
{
    try {
        std::optional<CommandOutcome> outcome = recordedOutcome(files, command);
        if (!outcome && !wasMissing(files, command)) {
            problem = "no outcome of " + command + " was recorded in " + files.pathOf(placeOfOutput(command));
        }
        return outcome;
    } catch (const ReadError& error) {
        problem = error.what();
        return std::nullopt;
    }
}

std::string PlayedMachine::whyNoListing() const
{
    std::string problem;
    static_cast<void>(outcomeOf(listCommand, problem));
    return problem;
}

bool PlayedMachine::isSeenBy(const void* caller) const noexcept
{
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    return std::any_of(audience.begin(), audience.end(),
                       [&](const Extent& file) { return address >= file.begin && address < file.end; });
}

int PlayedMachine::tellRelease(utsname& system) noexcept
{
    return withoutExceptions([&] {
        system = {};
        std::snprintf(system.sysname, sizeof system.sysname, "Linux");
        std::snprintf(system.release, sizeof system.release, "%s", release.c_str());
        if (release.empty()) {
            missing.insert("no kernel release was recorded in " + files.pathOf(releaseFile));
            return fail(EIO);
        }
        return 0;
    });
}

int PlayedMachine::openNode(const char* path, int flags) const noexcept
{
    return withoutExceptions([&] {
        if ((flags & O_ACCMODE) != O_RDONLY || (flags & O_CREAT) != 0) {
            return fail(EROFS);
        }
        // A new descriptor that can be closed and refers to nothing.
        return canBeOpened(path) ? eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)
                                 : fail(machine.isAnythingAt(path) ? EACCES : ENOENT);
    });
}

int PlayedMachine::mayAccess(const char* path, int mode) const noexcept
{
    return withoutExceptions([&] {
        if (!machine.isAnythingAt(path)) {
            return fail(ENOENT);
        }
        if ((mode & W_OK) != 0) {
            return fail(EROFS);
        }
        return (mode & X_OK) == 0 || files.isExecutable(path) ? 0 : fail(EACCES);
    });
}

bool isPlayedTo(const void* caller) noexcept
{
    return innermost != nullptr && innermost->isSeenBy(caller);
}

int playedOpen(const char* path, int flags) noexcept
{
    return innermost->openNode(path, flags);
}

int playedAccess(const char* path, int mode) noexcept
{
    return innermost->mayAccess(path, mode);
}

int playedUname(utsname& system) noexcept
{
    return innermost->tellRelease(system);
}

}  // namespace kivclaim::tools
