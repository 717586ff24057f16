#include "tools/session.h"

#include "tools/exit_status.h"

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

std::vector<kivclaim::host::TraceDestination> TraceOptions::destinations() const
{
    std::vector<kivclaim::host::TraceDestination> all;
    if (level) {
        all.push_back(kivclaim::host::traceToStandardError(*level));
    }
    if (!file.empty()) {
        checkWritable(file);
        all.push_back(kivclaim::host::traceToFile(level.value_or(ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_DETAIL), file,
                                                  maximumTraceFileBytes, keptTraceFiles));
    }
    return all;
}

}  // namespace kivclaim::tools
