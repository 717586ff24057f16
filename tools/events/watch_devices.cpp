// Prints changes of this machine's devices when they happen.
#include "host/printable_text.h"
#include "tools/commands.h"
#include "tools/comparison/compared_device.h"
#include "tools/events/device_events.h"
#include "tools/output.h"
#include "tools/utc_time.h"

#include <nlohmann/json.hpp>

using kivclaim::host::printableText;
using Json = nlohmann::ordered_json;

namespace kivclaim::tools {

namespace {

// The machine is read at most four times a second, however many events there are.
constexpr std::chrono::milliseconds gathering{250};

Json textOrNull(const std::string& text)
{
    return text.empty() ? Json() : Json(printableText(text));
}

std::string jsonLine(const std::string& time, const DeviceChange& change)
{
    return Json{{"time", time},
                {"change", change.change},
                {"device", printableText(change.device)},
                {"fact", textOrNull(change.fact)},
                {"before", textOrNull(change.before)},
                {"after", textOrNull(change.after)}}
        .dump();
}

std::string textOrNone(const std::string& text)
{
    return text.empty() ? "none" : printableText(text);
}

std::string textLine(const std::string& time, const DeviceChange& change)
{
    const std::string begin = time + " " + printableText(change.device) + " ";
    if (change.fact.empty()) {
        return begin + change.change + ": " + printableText(change.before + change.after);
    }
    return begin + change.fact + ": " + textOrNone(change.before) + " -> " + textOrNone(change.after);
}

}  // namespace

ExitStatus watchDevices(const SessionOptions& options, const WatchOptions& request)
{
    if (!options.sysroot.empty()) {
        throw CommandError("watch follows this machine; leave out --sysroot");
    }
    DeviceEvents events;
    ComparedDevices before = comparedDevices(options);
    complain("watching " + std::to_string(before.size()) + (before.size() == 1 ? " device" : " devices"));
    SessionOptions later = options;
    later.noWarnings = true;  // why answers are unsure is said once
    while (true) {
        if (events.await(gathering)) {
            complain("events were lost, but the machine is read anew: only changes that were undone are missing");
        }
        ComparedDevices after = comparedDevices(later);
        const std::string time = utcNow();
        for (const DeviceChange& change : changesBetween(before, after)) {
            printLine(request.json ? jsonLine(time, change) : textLine(time, change));
        }
        flushOutput();
        before = std::move(after);
    }
}

}  // namespace kivclaim::tools
