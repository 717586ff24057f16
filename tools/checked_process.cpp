#include "tools/checked_process.h"

#include "machine/descriptor.h"
#include "tools/exit_status.h"
#include "tools/watched_program.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <system_error>

namespace kivclaim::tools {

namespace {

// This process's variables with the others in place of those of the same name.
std::vector<std::string> environmentWith(const std::vector<std::pair<std::string, std::string>>& variables)
{
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string name = std::string(*entry, std::strcspn(*entry, "="));
        bool isReplaced = false;
        for (const auto& variable : variables) {
            isReplaced |= variable.first == name;
        }
        if (!isReplaced) {
            all.emplace_back(*entry);
        }
    }
    for (const auto& [name, value] : variables) {
        all.push_back(std::string(name).append("=").append(value));
    }
    return all;
}

ProgramStart startOf(const CheckedProcess& process, int reportEnd)
{
    ProgramStart start;
    start.words = process.arguments;
    start.words.insert(start.words.begin(), process.program);
    start.environment = environmentWith(process.variables);
    start.descriptors = {{reportEnd, checkReportDescriptor}};
    if (process.reportsOnStandardError) {
        start.descriptors.emplace_back(checkReportDescriptor, STDERR_FILENO);
    }
    start.descriptors.emplace_back(STDERR_FILENO, STDOUT_FILENO);
    start.shownAs = process.shownAs;
    start.limit = std::chrono::seconds(process.seconds);
    return start;
}

// What has been written to the report; waits for it no longer than a moment. Other processes may hold it open after the
// checked one has ended, and the checked one may have closed it.
class ReportReader {
public:
    explicit ReportReader(int descriptor) : descriptor(descriptor) {}

    void readOn(std::string& report)
    {
        constexpr int moment = 5;
        pollfd waiting{isOver ? -1 : descriptor, POLLIN, 0};
        poll(&waiting, 1, moment);
        std::array<char, 65536> buffer;
        while (!isOver) {
            const ssize_t length = read(descriptor, buffer.data(), buffer.size());
            if (length > 0) {
                report.append(buffer.data(), static_cast<std::size_t>(length));
            } else if (length == 0 || errno != EINTR) {
                isOver = length == 0;
                return;
            }
        }
    }

private:
    int descriptor;
    bool isOver = false;
};

// Its status, or nothing when its time was over.
std::optional<int> waitFor(WatchedProgram& program, int report, std::string& text)
{
    ReportReader reader(report);
    std::optional<int> status;
    while (!status && !program.isLate()) {
        reader.readOn(text);
        status = program.status();
    }
    reader.readOn(text);
    return status;
}

std::string endingOf(int status)
{
    if (WIFSIGNALED(status)) {
        return "was ended by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
    }
    return WEXITSTATUS(status) != 0 ? "ended with status " + std::to_string(WEXITSTATUS(status)) : "";
}

}  // namespace

CheckedEnd run(const CheckedProcess& process)
{
    try {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category());
        }
        const machine::Descriptor report(ends[0]);
        machine::Descriptor reportEnd(ends[1]);
        fcntl(report.get(), F_SETFL, O_NONBLOCK);
        WatchedProgram program(startOf(process, reportEnd.get()));
        reportEnd = machine::Descriptor();
        CheckedEnd end;
        const std::optional<int> status = waitFor(program, report.get(), end.report);
        end.ending = status ? endingOf(*status) : "did not end within " + std::to_string(process.seconds) + " seconds";
        return end;
    } catch (const std::system_error& error) {
        throw CommandError("cannot start a process for the check: " + std::string(std::strerror(error.code().value())) +
                           "; try again later");
    }
}

}  // namespace kivclaim::tools
