// Prints how a machine's devices changed between two recordings.
#include "host/printable_text.h"
#include "tools/commands.h"
#include "tools/comparison/compared_device.h"
#include "tools/output.h"
#include "tools/recording/replayed_root.h"
#include "tools/table.h"

#include <nlohmann/json.hpp>

using kivclaim::host::printableText;
using Json = nlohmann::ordered_json;

namespace kivclaim::tools {

namespace {

// "-" is this machine.
ComparedDevices devicesOf(const SessionOptions& options, const std::string& place)
{
    SessionOptions own = options;
    if (place == "-") {
        return comparedDevices(own);
    }
    if (place.empty()) {
        throw CommandError("an empty name is no recording; give two, or - for this machine");
    }
    const ReplayedRoot root(place);
    own.sysroot = place;
    own.sysrootDirectory = root.directory();
    return comparedDevices(own);
}

Json textOrNull(const std::string& text)
{
    return text.empty() ? Json() : Json(printableText(text));
}

void printJson(const std::vector<DeviceChange>& changes)
{
    Json list = Json::array();
    for (const DeviceChange& change : changes) {
        list.push_back({{"change", change.change},
                        {"device", printableText(change.device)},
                        {"fact", textOrNull(change.fact)},
                        {"before", textOrNull(change.before)},
                        {"after", textOrNull(change.after)}});
    }
    printLine(Json{{"changes", std::move(list)}}.dump(3));
}

void printTable(const std::vector<DeviceChange>& changes)
{
    TableForm form;
    form.name = "changes";
    Table table(form, {{"CHANGE", ColumnType::text},
                       {"DEVICE", ColumnType::text},
                       {"FACT", ColumnType::text},
                       {"BEFORE", ColumnType::text},
                       {"AFTER", ColumnType::text}});
    for (const DeviceChange& change : changes) {
        table.add({change.change, change.device, change.fact, change.before, change.after});
    }
    table.print();
}

}  // namespace

ExitStatus diff(const SessionOptions& options, const DiffOptions& request)
{
    if (!options.sysroot.empty()) {
        throw CommandError("diff compares the two machines that it names; leave out --sysroot");
    }
    const ComparedDevices before = devicesOf(options, request.before);
    const std::vector<DeviceChange> changes = changesBetween(before, devicesOf(options, request.after));
    if (request.json) {
        printJson(changes);
    } else if (!changes.empty()) {
        printTable(changes);
    }
    return changes.empty() ? answeredYes : answeredNo;
}

}  // namespace kivclaim::tools
