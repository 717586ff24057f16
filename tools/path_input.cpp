#include "tools/path_input.h"

#include "tools/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

namespace kivclaim::tools {

namespace {

constexpr std::size_t bufferSize = 65536;
// Far beyond what the kernel takes as a path; a longer line is no list of paths.
constexpr std::size_t maximumLineLength = 1048576;

// Reads standard input line by line. Flushes the answers before it blocks, so that the writer of the paths can wait for
// them.
class LineReader {
public:
    // Puts the next line into `line`; false at the end of the input. An overlong line comes as its beginning, longer
    // than maximumLineLength by one.
    bool next(std::string& line)
    {
        line.clear();
        for (;;) {
            if (unread.empty() && !fill()) {
                return !line.empty();
            }
            const std::size_t end = unread.find('\n');
            append(line, unread.substr(0, end));
            if (end != std::string_view::npos) {
                unread.remove_prefix(end + 1);
                return true;
            }
            unread = {};
        }
    }

private:
    static void append(std::string& line, std::string_view piece)
    {
        line.append(piece.substr(0, maximumLineLength + 1 - line.size()));
    }

    bool fill()
    {
        flushOutput();
        ssize_t length = 0;
        do {
            length = read(STDIN_FILENO, buffer.data(), buffer.size());
        } while (length < 0 && errno == EINTR);
        if (length < 0) {
            throw CommandError(std::string("cannot read standard input: ") + std::strerror(errno) +
                               "; '-' takes paths from it, one a line");
        }
        unread = std::string_view(buffer.data(), static_cast<std::size_t>(length));
        return length > 0;
    }

    std::vector<char> buffer = std::vector<char>(bufferSize);
    std::string_view unread;
};

// Why `path` is invalid; nothing for a valid one.
const char* objectionTo(const std::string& path)
{
    if (path.empty()) {
        return "is empty";
    }
    if (path.size() > maximumLineLength) {
        return "is longer than 1048576 bytes";
    }
    return path.find('\0') != std::string::npos ? "contains a zero byte" : nullptr;
}

ExitStatus refuse(const std::string& place, const char* objection)
{
    complain(place + " " + objection + "; give device paths such as /dev/sda");
    return failed;
}

ExitStatus forEachLine(const std::function<ExitStatus(const std::string& path)>& answer)
{
    ExitStatus outcome = answeredYes;
    LineReader reader;
    std::string line;
    for (unsigned long number = 1; reader.next(line); ++number) {
        const char* const objection = objectionTo(line);
        outcome = worse(outcome, objection == nullptr
                                     ? answer(line)
                                     : refuse("line " + std::to_string(number) + " of standard input", objection));
    }
    return outcome;
}

}  // namespace

ExitStatus forEachPath(const std::vector<std::string>& arguments,
                       const std::function<ExitStatus(const std::string& path)>& answer)
{
    ExitStatus outcome = answeredYes;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "-") {
            outcome = worse(outcome, forEachLine(answer));
        } else if (const char* const objection = objectionTo(arguments[i])) {
            const std::string place = arguments.size() == 1 ? "PATH" : "PATH " + std::to_string(i + 1);
            outcome = worse(outcome, refuse(place, objection));
        } else {
            outcome = worse(outcome, answer(arguments[i]));
        }
    }
    return outcome;
}

}  // namespace kivclaim::tools
