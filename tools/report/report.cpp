// A machine as one page for people.
#include "machine/descriptor.h"
#include "tools/commands.h"
#include "tools/listing/named_devices.h"
#include "tools/output.h"
#include "tools/recording/recording.h"
#include "tools/recording/scratch.h"
#include "tools/report/page.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

using kivclaim::machine::Descriptor;
using kivclaim::machine::ReadError;

namespace kivclaim::tools {

namespace {

constexpr char standardOutput[] = "-";

// Before anything is done: only a file is replaced, never a device such as /dev/null.
void requireFile(const std::string& path)
{
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw CommandError("'" + path + "' is no file; give a new name, or - for standard output");
    }
}

void writeTo(const std::string& path, const std::string& text)
{
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    std::size_t written = 0;
    while (file.isOpen() && written < text.size()) {
        const ssize_t count = ::write(file.get(), text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR) {
            throw RecordingError(std::strerror(errno));
        }
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    if (!file.isOpen() || ::fsync(file.get()) != 0) {
        throw RecordingError(std::strerror(errno));
    }
}

// The file is whole or not there.
void write(const std::string& path, const std::string& page)
{
    try {
        const Scratch scratch = Scratch::fileBeside(path);
        writeTo(scratch.path(), page);
        if (std::rename(scratch.path().c_str(), path.c_str()) != 0) {
            throw RecordingError(std::strerror(errno));
        }
    } catch (const RecordingError& error) {
        throw CommandError("cannot write the report '" + path + "': " + error.what() +
                           "; give a name in a directory that you may write to");
    }
}

}  // namespace

ExitStatus report(const SessionOptions& options, const ReportOptions& request)
{
    if (request.path != standardOutput) {
        requireFile(request.path);
    }
    try {
        const ReportedMachine reported = reportedMachine(options);
        complainAboutReading(reported.machine);
        if (!options.noWarnings) {
            complainOfDoubts(reported.doubts);
        }
        const std::string page = pageOf(reported);
        if (request.path == standardOutput) {
            printLine(std::string_view(page).substr(0, page.size() - 1));
        } else {
            write(request.path, page);
        }
        return reported.doubts.empty() ? answeredYes : answeredUnsure;
    } catch (const ReadError& error) {
        throw CommandError(error.what());
    }
}

}  // namespace kivclaim::tools
