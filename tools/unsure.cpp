#include "tools/unsure.h"

#include "tools/list_command.h"
#include "tools/output.h"
#include "tools/session.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>

using State = kivclaim::VolumeListing::State;
using kivclaim::machine::Kind;

namespace kivclaim::tools {

namespace {

constexpr char blanks[] = " \t\r\n";

bool isInstalled(const Session& session)
{
    if (session.played() != nullptr) {
        return !session.played()->lacks(listCommand);
    }
    return access(listCommand, F_OK) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

// The last line of what the tool wrote to standard error, or why it could not be run: what follows the command in the
// runner's message.
std::string wordsIn(const std::string& message)
{
    const std::size_t colon = message.find(": ", std::min(message.find(']'), message.size()));
    const std::size_t end = message.find_last_not_of(blanks);
    if (colon == std::string::npos || end == std::string::npos || end <= colon) {
        return "";
    }
    const std::string words = message.substr(colon + 2, end - colon - 1);
    const std::size_t line = words.rfind('\n');
    const std::string last = line == std::string::npos ? words : words.substr(line + 1);
    return last.substr(std::min(last.find_first_not_of(blanks), last.size()));
}

std::string reasonOf(const kivclaim::VolumeListing& listing)
{
    const bool tookTooLong = listing.message().find("] was ended by signal") != std::string::npos &&
                             listing.message().find(" after its time limit") != std::string::npos;
    const std::string words = wordsIn(listing.message());
    return listing.problem() + (tookTooLong ? " at its time limit" : "") + (words.empty() ? "" : ": " + words);
}

std::string remedyFor(const kivclaim::VolumeListing& listing, const Session& session)
{
    if (listing.state() == State::notRun && !isInstalled(session)) {
        return "install lvm2";
    }
    if (geteuid() != 0) {
        return "run kivclaim as root";
    }
    if (!listing.volumes().empty()) {
        return "it failed although it printed volumes, as it does when a disk is missing: see 'pvs'";
    }
    return "run " + std::string(listCommand) + " by hand to see what is wrong";
}

}  // namespace

Doubt doubtAbout(const kivclaim::ClaimAnswer& answer, const Session& session)
{
    const std::string missing = session.takeMissing();
    if (!missing.empty()) {
        return {missing, ""};
    }
    if (!answer.isUnsure()) {
        return {};
    }
    if (session.played() == nullptr) {
        return {reasonOf(answer.listing()), remedyFor(answer.listing(), session)};
    }
    // An earlier answer may have noted it.
    const std::string unrecorded = session.played()->whyNoListing();
    return {unrecorded.empty() ? reasonOf(answer.listing()) : unrecorded, ""};
}

bool isWithoutVolumes(const kivclaim::VolumeListing& listing, const kivclaim::machine::Machine& machine,
                      const Session& session)
{
    const auto isVolume = [](const kivclaim::machine::Device& device) {
        return device.kind == Kind::volume || device.kind == Kind::hiddenVolume;
    };
    return listing.state() == State::notRun && !isInstalled(session) &&
           std::none_of(machine.devices().begin(), machine.devices().end(), isVolume);
}

void complainOfDoubts(const std::vector<Doubt>& doubts)
{
    std::map<std::string, std::size_t> counts;
    for (const Doubt& doubt : doubts) {
        counts[doubt.isThere() ? doubt.text() : ""] += 1;
    }
    for (const auto& [text, count] : counts) {
        if (!text.empty()) {
            complain((count == 1 ? "the answers about 1 device are"
                                 : "the answers about " + std::to_string(count) + " devices are") +
                     std::string(" unsure, because ") + text);
        }
    }
}

}  // namespace kivclaim::tools
