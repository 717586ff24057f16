#include "tests/volume_manager/volume_manager.h"

#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>

namespace volume_manager {

namespace {

constexpr int usageError = 2;
constexpr int stateError = 3;

// The state file, kept locked so that two commands at once see each other's changes.
class StateFile {
public:
    explicit StateFile(const char* name) : descriptor(open(name, O_RDWR | O_CLOEXEC))
    {
        if (descriptor < 0 || flock(descriptor, LOCK_EX) != 0) {
            throw std::runtime_error("cannot open the state file");
        }
    }
    ~StateFile() { close(descriptor); }
    StateFile(const StateFile&) = delete;
    StateFile& operator=(const StateFile&) = delete;

    std::string text() const
    {
        std::string all;
        char buffer[4096];
        ssize_t count = 0;
        while ((count = read(descriptor, buffer, sizeof buffer)) > 0) {
            all.append(buffer, static_cast<std::size_t>(count));
        }
        return all;
    }
    void replace(const std::string& text) const
    {
        if (ftruncate(descriptor, 0) != 0 ||
            pwrite(descriptor, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
            throw std::runtime_error("cannot write the state file");
        }
    }

private:
    int descriptor;
};

Words split(const std::string& line)
{
    std::istringstream stream(line);
    Words words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}

std::string join(const Words& words, std::size_t from)
{
    std::string text;
    for (std::size_t i = from; i < words.size(); ++i) {
        text += (i == from ? "" : " ") + words[i];
    }
    return text;
}

State parse(const std::string& text)
{
    State state;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        state.lines.push_back(split(line));
    }
    return state;
}

std::string printed(const State& state)
{
    std::string text;
    for (const Words& line : state.lines) {
        text += join(line, 0) + "\n";
    }
    return text;
}

// The behaviour that one line gives a command; false when the line is not of that kind, or for other commands.
bool applyMood(const Words& line, const std::string& command, Answer& answer)
{
    if (line.size() < 2 || (line[1] != command && line[1] != "*")) {
        return false;
    }
    if (line[0] == "hang") {
        answer.hangs = true;
    } else if (line[0] == "warn") {
        answer.output = join(line, 2) + "\n" + answer.output;
    } else if (line[0] == "garbage") {
        answer.output = join(line, 2) + "\n";
    } else if (line[0] == "fail" && line.size() > 2) {
        answer.exitCode = std::atoi(line[2].c_str());
        answer.output = line.size() > 3 ? join(line, 3) + "\n" : "";
        answer.error.clear();
    } else {
        return false;
    }
    return true;
}

bool startsWith(const Words& line, const char* word)
{
    return !line.empty() && line[0] == word;
}

// Applies the behaviour lines in their order, and removes those that apply once.
void applyMoods(State& state, const std::string& command, Answer& answer)
{
    std::vector<Words> kept;
    for (const Words& line : state.lines) {
        if (startsWith(line, "once")) {
            if (!applyMood(Words(line.begin() + 1, line.end()), command, answer)) {
                kept.push_back(line);
            }
        } else {
            applyMood(line, command, answer);
            kept.push_back(line);
        }
    }
    state.lines = kept;
}

void applyNextChange(State& state)
{
    const auto change = std::find_if(state.lines.begin(), state.lines.end(),
                                     [](const Words& line) { return startsWith(line, "then"); });
    if (change != state.lines.end()) {
        const Words line(change->begin() + 1, change->end());
        state.lines.erase(change);
        state.lines.push_back(line);
    }
}

bool isToFail(const State& state, const std::string& command)
{
    State copy = state;
    Answer answer;
    applyMoods(copy, command, answer);
    return answer.exitCode != 0;
}

Answer answerOf(const StateFile& file, const std::string& name, const Command& command, const std::string& argument)
{
    State state = parse(file.text());
    const std::string before = printed(state);
    Answer answer = isToFail(state, name) ? Answer() : command(state, argument);
    applyMoods(state, name, answer);
    applyNextChange(state);
    // A tool that only answers writes nothing, so that it may be killed at any time.
    if (printed(state) != before) {
        file.replace(printed(state));
    }
    return answer;
}

}  // namespace

std::vector<Path> State::allPaths() const
{
    std::vector<Path> all;
    for (const Words& line : lines) {
        if (!startsWith(line, "path") || line.size() < 5) {
            continue;
        }
        const Path path = {line[1], line[2], line[3], line[4]};
        const auto same = std::find_if(all.begin(), all.end(), [&](const Path& other) {
            return other.node == path.node && other.disk == path.disk;
        });
        if (same != all.end()) {
            *same = path;
        } else {
            all.push_back(path);
        }
    }
    return all;
}

std::vector<Path> State::paths() const
{
    std::vector<Path> all = allPaths();
    all.erase(std::remove_if(all.begin(), all.end(), [&](const Path& path) { return isLost(path.node); }), all.end());
    return all;
}

bool State::isLost(const std::string& node) const
{
    return std::find(lines.begin(), lines.end(), Words{"lost", node}) != lines.end();
}

void State::lose(const std::string& node)
{
    lines.push_back({"lost", node});
}

void State::find(const std::string& node)
{
    lines.erase(std::remove(lines.begin(), lines.end(), Words{"lost", node}), lines.end());
}

std::string table(const Words& header, const std::vector<Words>& rows)
{
    constexpr std::size_t gap = 4;
    std::vector<std::size_t> widths;
    for (std::size_t column = 0; column < header.size(); ++column) {
        std::size_t width = header[column].size();
        for (const Words& row : rows) {
            width = std::max(width, row[column].size());
        }
        widths.push_back(width + gap);
    }
    const auto printedRow = [&](const Words& row) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            line += row[column];
            if (column + 1 < row.size()) {
                line.append(widths[column] - row[column].size(), ' ');
            }
        }
        return line + "\n";
    };
    const std::string first = printedRow(header);
    std::string text = first + std::string(first.size() - 1, '-') + "\n";
    for (const Words& row : rows) {
        text += printedRow(row);
    }
    return text;
}

int play(int argc, char** argv, const std::map<std::string, Command>& commands)
{
    const char* const stateName = std::getenv("KIVCLAIM_VM_STATE");
    const auto command = argc < 2 ? commands.end() : commands.find(argv[1]);
    if (stateName == nullptr || command == commands.end()) {
        std::cerr << "usage: KIVCLAIM_VM_STATE=FILE " << argv[0] << " COMMAND [ARGUMENT]\n";
        return usageError;
    }
    try {
        Answer answer;
        {
            const StateFile file(stateName);
            answer = answerOf(file, command->first, command->second, argc > 2 ? argv[2] : "");
        }
        std::cerr << answer.error << std::flush;
        std::cout << answer.output << std::flush;
        while (answer.hangs) {
            pause();
        }
        return answer.exitCode;
    } catch (const std::runtime_error& error) {
        std::cerr << argv[0] << ": " << error.what() << "\n";
        return stateError;
    }
}

}  // namespace volume_manager
