#include "tools/recorded_commands.h"

#include "host/printable_text.h"

#include <charconv>
#include <string_view>

using kivclaim::host::CommandOutcome;
using kivclaim::machine::ReadError;
using kivclaim::machine::RecordedFiles;

namespace kivclaim::tools {

namespace {

constexpr std::size_t longestOutput = 16UL * 1024 * 1024;
constexpr std::size_t longestStatus = 64;
constexpr int mostExitStatus = 255;
constexpr int mostSignal = 127;

// All of `text`, from `least` to `most`.
std::optional<int> numberIn(std::string_view text, int least, int most)
{
    int number = 0;
    const char* const end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, number);
    const bool isNumber = result.ec == std::errc() && result.ptr == end && number >= least && number <= most;
    return isNumber ? std::optional(number) : std::nullopt;
}

void readStatus(std::string_view text, const std::string& place, CommandOutcome& outcome)
{
    constexpr std::string_view signal = "signal ";
    if (!text.empty() && text.back() == '\n') {
        text.remove_suffix(1);
    }
    if (const std::optional<int> status = numberIn(text, 0, mostExitStatus)) {
        outcome.exitStatus = *status;
        return;
    }
    const bool isSignal = text.substr(0, signal.size()) == signal;
    const std::optional<int> number = isSignal ? numberIn(text.substr(signal.size()), 1, mostSignal) : std::nullopt;
    if (!number) {
        throw ReadError("'" + place + "' says '" + host::printableText(text) +
                        "'; write an exit status from 0 to 255, or signal and a number from 1 to 127");
    }
    outcome.signal = *number;
}

}  // namespace

std::string placeOfCommand(const std::string& command, const char* file)
{
    return "kivclaim/commands" + std::string(command.compare(0, 1, "/") == 0 ? "" : "/") + command + "/" + file;
}

bool wasMissing(const RecordedFiles& files, const std::string& command)
{
    return files.content(placeOfCommand(command, "status"), longestStatus) == missingProgram;
}

std::string placeOfOutput(const std::string& command)
{
    return placeOfCommand(command, "output");
}

std::optional<CommandOutcome> recordedOutcome(const RecordedFiles& files, const std::string& command)
{
    std::optional<std::string> output = files.content(placeOfOutput(command), longestOutput);
    if (!output) {
        return std::nullopt;
    }
    CommandOutcome outcome;
    outcome.output = std::move(*output);
    outcome.errors = files.content(placeOfCommand(command, "errors"), longestOutput).value_or("");
    const std::string place = placeOfCommand(command, "status");
    if (const std::optional<std::string> status = files.content(place, longestStatus)) {
        readStatus(*status, files.pathOf(place), outcome);
    }
    return outcome;
}

}  // namespace kivclaim::tools
