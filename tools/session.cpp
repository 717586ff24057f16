#include "tools/session.h"

#include "tools/exit_status.h"
#include "tools/list_command.h"
#include "tools/module_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <fcntl.h>

namespace kivclaim::tools {

namespace {

constexpr std::size_t maximumTraceFileBytes = 100UL * 1024 * 1024;
constexpr std::size_t keptTraceFiles = 3;

// Better no answer than an answer without the trace that was asked for.
void checkWritable(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        throw CommandError("cannot write the trace file '" + path + "': " + std::strerror(errno) +
                           "; give a file in a directory that you may write to");
    }
    close(descriptor);
}

}  // namespace

kivclaim::machine::Root SessionOptions::root() const
{
    using kivclaim::machine::Root;
    return sysroot.empty() ? Root::live()
                           : Root::recorded(sysrootDirectory.empty() ? sysroot : sysrootDirectory, sysroot);
}

std::vector<kivclaim::host::TraceDestination> SessionOptions::destinations() const
{
    std::vector<kivclaim::host::TraceDestination> all;
    if (traceLevel) {
        all.push_back(kivclaim::host::traceToStandardError(*traceLevel));
    }
    if (!traceFile.empty()) {
        checkWritable(traceFile);
        all.push_back(kivclaim::host::traceToFile(traceLevel.value_or(ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_DETAIL), traceFile,
                                                  maximumTraceFileBytes, keptTraceFiles));
    }
    return all;
}

Session::Session(const SessionOptions& options, const std::vector<kivclaim::host::TraceDestination>& destinations)
    : options(options)
{
    if (!options.root().isLive()) {
        playedMachine = std::make_unique<PlayedMachine>(options.root(), options.known);
    }
    // An outcome that was not recorded must be missed for each answer that needs it.
    if (!options.noSnapshot && (playedMachine == nullptr || playedMachine->knows(listCommand))) {
        snapshot.emplace(std::vector<std::string>{listCommand});
    }
    addModules(manager);
    // After the modules, so that the records are those of the questions alone.
    if (!destinations.empty()) {
        manager.registerTraceLog(kivclaim::host::makeTraceLog(destinations));
    }
}

void Session::addModules(CKivClaimManager& to)
{
    for (std::unique_ptr<CKivDeviceClaimBase>& module : loadModules(options.moduleFiles)) {
        if (playedMachine != nullptr) {
            playedMachine->playTo(*module);
        }
        to.registerClaimModule(module.get());
        static_cast<void>(module.release());  // the manager has it now
    }
}

CKivClaimManager& Session::silentManager()
{
    if (silent == nullptr) {
        silent = std::make_unique<CKivClaimManager>();
        addModules(*silent);
    }
    return *silent;
}

}  // namespace kivclaim::tools
