// The path that the volume manager uses now for a native disk.
#include "host/printable_text.h"
#include "modules/kiv_nativepath_claim.h"
#include "tools/commands.h"
#include "tools/lookup_progress.h"
#include "tools/output.h"
#include "tools/path_input.h"
#include "tools/stack_table.h"
#include "tools/watch.h"

#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>

using kivclaim::host::printableText;

namespace kivclaim::tools {

namespace {

using Clock = LookupProgress::Clock;

// One line on a terminal that is redrawn while the object exists, and cleared afterwards.
class LiveLine {
public:
    explicit LiveLine(const LookupProgress& shown) : progress(shown), painter([this] { paint(); }) {}
    LiveLine(const LiveLine&) = delete;
    LiveLine& operator=(const LiveLine&) = delete;
    ~LiveLine()
    {
        {
            const std::lock_guard<std::mutex> guard(lock);
            over = true;
        }
        ended.notify_all();
        painter.join();
        std::fputs(clearedLine, stderr);
    }

private:
    static constexpr const char* clearedLine = "\r\x1b[K";
    static constexpr std::chrono::milliseconds betweenPaints{200};

    void paint()
    {
        std::unique_lock<std::mutex> guard(lock);
        while (!over) {
            std::fprintf(stderr, "%s%s", clearedLine, progress.description(Clock::now()).c_str());
            ended.wait_for(guard, betweenPaints);
        }
    }

    const LookupProgress& progress;
    std::mutex lock;
    std::condition_variable ended;
    bool over = false;
    std::thread painter;  // the last member: it uses all others
};

// The volume manager's tools take the name as a word of a command line, and the lookup changes the volume manager's
// state, so only names that can be those of disks are passed on.
void requireNativeDisk(const std::string& path)
{
    constexpr std::string_view directory = nativeStack.pattern;
    constexpr char digits[] = "0123456789";
    const auto isLetterOrDigit = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); };
    const bool isDisk =
        path.size() > directory.size() && path.compare(0, directory.size(), directory) == 0 &&
        std::all_of(path.begin() + static_cast<std::ptrdiff_t>(directory.size()), path.end(), isLetterOrDigit);
    if (!isDisk) {
        throw CommandError("'" + path + "' is no native disk path; give one such as /dev/sdc");
    }
    const std::string disk = path.substr(0, path.find_last_not_of(digits) + 1);
    if (disk != path) {
        throw CommandError("'" + path + "' is a partition; ask about its disk, " + disk);
    }
}

bool isConfirmed(const std::vector<std::string>& paths, FILE* terminal)
{
    std::string names;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        names += (i == 0 ? "" : i + 1 == paths.size() ? " and " : ", ") + paths[i];
    }
    std::fprintf(terminal,
                 "The volume manager will remove the node%s of %s and rescan all disks.\n"
                 "Go on? [y/N] ",
                 paths.size() == 1 ? "" : "s", names.c_str());
    std::fflush(terminal);
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

// Asks only on a terminal, wherever standard error goes.
void requireConfirmation(const std::vector<std::string>& paths)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> terminal(
        isatty(STDIN_FILENO) != 0 ? std::fopen("/dev/tty", "w") : nullptr, &std::fclose);
    if (terminal != nullptr && !isConfirmed(paths, terminal.get())) {
        throw CommandError("not confirmed, nothing was done; --waited looks up without removing the node");
    }
}

const char* reasonOf(LookupProgress::Step step)
{
    switch (step) {
        case LookupProgress::Step::toolSearch:
            return "the multipathing tool /usr/sbin/ztkivadm is not installed";
        case LookupProgress::Step::nodeLookup:
            return "the node lookup gave no answer";
        case LookupProgress::Step::pathLookup:
        case LookupProgress::Step::answered:
            break;
    }
    return "the path lookup gave no answer";
}

// Writes the library's records where the user wants them. The warning about a command without output does not name the
// command, so a record that does is written after it.
class RecordWriter {
public:
    explicit RecordWriter(const SessionOptions& options)
    {
        const std::vector<kivclaim::host::TraceDestination> destinations = options.destinations();
        if (!destinations.empty()) {
            log = kivclaim::host::makeTraceLog(destinations);
        }
    }

    void take(int level, const std::string& record)
    {
        constexpr std::string_view start = "ExecuteCommand command: ";
        if (record.compare(0, start.size(), start) == 0) {
            command = record.substr(start.size());
        }
        write(level, record);
        if (record == "Warning - no output of command.") {
            write(level, "The command that printed no table is [" + command + "]");
        }
    }

private:
    void write(int level, const std::string& record)
    {
        if (log.get() != nullptr) {
            log->trace(level, "%s", record.c_str());
        }
    }

    kivclaim::host::TraceLogPointer log;
    std::string command;
};

// Looks up with a log that follows the progress, shown as the user asked for.
std::string lookUp(const SessionOptions& options, const ActivePathOptions& request, const std::string& path,
                   LookupProgress& progress)
{
    RecordWriter writer(options);
    CNativePathClaim module;
    module.registerTraceLog(kivclaim::host::makeTraceLog({kivclaim::host::traceToFunction(
        ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_DETAIL, [&](int level, const std::string& record) {
            writer.take(level, record);
            const bool isNewAttempt = progress.take(record, Clock::now());
            if (isNewAttempt && request.verbose && isatty(STDERR_FILENO) == 0) {
                complain(progress.description(Clock::now()));
            }
            Watch::beforeOutput();
        })}));
    std::optional<LiveLine> line;
    const bool recordsShowIt = options.traceLevel.value_or(0) >= ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_INFORMATION;
    if (isatty(STDERR_FILENO) != 0 && !recordsShowIt) {
        line.emplace(progress);
    }
    return module.getActivePath(path, request.waited);
}

void requireThisMachinesVolumeManager(const SessionOptions& options)
{
    if (!options.moduleFiles.empty()) {
        throw CommandError("active-path asks the volume manager and no claim module; leave out --module");
    }
    if (!options.sysroot.empty()) {
        throw CommandError("active-path asks the volume manager of this machine; leave out --sysroot");
    }
}

ExitStatus answer(const SessionOptions& options, const ActivePathOptions& request, const std::string& disk)
{
    LookupProgress progress;
    const std::string path = lookUp(options, request, disk, progress);
    printLine(printableText(path));
    if (progress.step() != LookupProgress::Step::answered) {
        complain(disk + " as it was given: " + reasonOf(progress.step()));
        return answeredNo;
    }
    return answeredYes;
}

}  // namespace

ExitStatus activePath(const SessionOptions& options, const ActivePathOptions& request)
{
    std::vector<std::string> disks;
    std::copy_if(request.paths.begin(), request.paths.end(), std::back_inserter(disks),
                 [](const std::string& path) { return path != "-"; });
    // All of them before anything is changed.
    std::for_each(disks.begin(), disks.end(), requireNativeDisk);
    requireThisMachinesVolumeManager(options);
    const bool changesSomething = !request.waited && CZtKIVSupport().isZtKIVInstalled();
    if (changesSomething && !request.yes && !disks.empty()) {
        requireConfirmation(disks);
    }
    return forEachPath(request.paths, [&](const std::string& path) {
        try {
            requireNativeDisk(path);
        } catch (const CommandError& error) {  // from standard input: the others may be right
            complain(error.what());
            return failed;
        }
        return answer(options, request, path);
    });
}

}  // namespace kivclaim::tools
