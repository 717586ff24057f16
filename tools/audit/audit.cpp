// Compares the library's answers about devices with the kernel's, and gives a reason for each difference.
#include "host/printable_text.h"
#include "tools/audit/audit_table.h"
#include "tools/audit/audited_device.h"
#include "tools/audit/known_quirks.h"
#include "tools/audit/metrics.h"
#include "tools/commands.h"
#include "tools/kernel_account.h"
#include "tools/listing/column_choice.h"
#include "tools/output.h"
#include "tools/path_input.h"
#include "tools/path_questions.h"
#include "tools/quirk_names.h"
#include "tools/table.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>

using kivclaim::host::printableText;
using kivclaim::machine::Device;
using kivclaim::machine::Machine;
using Json = nlohmann::ordered_json;

namespace kivclaim::tools {

namespace {

enum class Verdict { agrees, quirk, differs };

const char* name(Verdict verdict)
{
    switch (verdict) {
        case Verdict::agrees:
            return "agrees";
        case Verdict::quirk:
            return "quirk";
        case Verdict::differs:
            break;
    }
    return "differs";
}

Verdict verdictOn(const Difference& difference)
{
    return difference.quirk.empty() ? Verdict::differs : Verdict::quirk;
}

Verdict verdictOn(const AuditedDevice& device)
{
    Verdict worst = Verdict::agrees;
    for (const Difference& difference : device.differences) {
        worst = std::max(worst, verdictOn(difference));
    }
    return worst;
}

struct Summary {
    std::size_t devices = 0;
    std::size_t agree = 0;
    std::size_t quirks = 0;   // devices with differences, all of them known quirks
    std::size_t unknown = 0;  // devices with a difference that no known quirk explains
    std::size_t unsure = 0;   // devices with unsure answers, whatever the verdict
};

Summary summaryOf(const std::vector<AuditedDevice>& devices)
{
    Summary summary;
    summary.devices = devices.size();
    for (const AuditedDevice& device : devices) {
        const Verdict verdict = verdictOn(device);
        ++(verdict == Verdict::agrees ? summary.agree : verdict == Verdict::quirk ? summary.quirks : summary.unknown);
        summary.unsure += device.doubt.isThere() ? 1 : 0;
    }
    return summary;
}

// Why the session's latest answers, those about the device, are unsure.
Doubt doubtAbout(const Session& session, const kivclaim::ClaimAnswer& answer, const AuditedDevice& device,
                 KernelAccount& kernel)
{
    Doubt doubt = tools::doubtAbout(answer, session);
    // An unexpected text is shown unchanged, so that nothing is hidden.
    const bool isDamaged = session.played() != nullptr && (device.kernel.marks() & ~machine::notUtf8) != 0;
    if (isDamaged) {
        doubt.reason +=
            (doubt.isThere() ? " and " : "") + std::string("what was recorded of the device is incomplete or wrong");
    }
    const bool mayBeNone = doubt.isThere() && device.kernel.exists();
    return mayBeNone && isWithoutVolumes(answer.listing(), kernel.machine(), session) ? Doubt() : doubt;
}

// In natural order of their names (sda9 before sda10). Those without a node cannot be asked about.
std::vector<const Device*> devicesWithNodes(const Machine& machine, bool isLive)
{
    std::vector<const Device*> devices;
    for (const Device& device : machine.devices()) {
        if (!device.hidden && (!isLive || device.number)) {
            devices.push_back(&device);
        }
    }
    // Names from sysfs end with a NUL byte.
    std::sort(devices.begin(), devices.end(), [](const Device* one, const Device* other) {
        return strverscmp(one->node.data(), other->node.data()) < 0;
    });
    return devices;
}

// Asks about one device after the other.
class Auditor {
public:
    Auditor(const SessionOptions& options, Session& session)
        : options(options), session(session), kernel(session), notes(options, session)
    {
    }

    // An empty list of paths means all devices of the machine.
    ExitStatus audit(const std::vector<std::string>& paths, std::vector<AuditedDevice>& devices)
    {
        if (paths.empty()) {
            auditAll(devices);
            return answeredYes;
        }
        return forEachPath(paths, [&](const std::string& path) {
            if (!options.noWarnings && kernel.isNothingAt(path)) {
                complain(path + ": no such device; the name alone decides");
            }
            const std::string name = notes.nameOf(path);
            devices.push_back(ask(name, kernel.at(name)));
            return answeredYes;
        });
    }

private:
    AuditedDevice ask(const std::string& path, const KernelTruth& truth)
    {
        if (!query || options.noSnapshot) {
            query.emplace(session.manager);
        }
        const kivclaim::ClaimAnswer answer = query->ask(path);
        requireAnswer(answer);
        AuditedDevice device = audited(answer, truth);
        device.doubt = doubtAbout(session, answer, device, kernel);
        return device;
    }

    void auditAll(std::vector<AuditedDevice>& devices)
    {
        const Machine& machine = kernel.machine();
        for (const Device* const device : devicesWithNodes(machine, session.played() == nullptr)) {
            AuditedDevice answers = ask(std::string(device->node), KernelTruth(machine, *device));
            // A device that vanished meanwhile cannot be compared.
            if (answers.differences.empty() || machine.isStillThere(*device)) {
                devices.push_back(std::move(answers));
            }
        }
    }

    const SessionOptions& options;
    Session& session;
    KernelAccount kernel;
    AnswerNotes notes;
    std::optional<kivclaim::ClaimQuery> query;
};

std::vector<Doubt> doubtsOf(const std::vector<AuditedDevice>& devices)
{
    std::vector<Doubt> doubts;
    doubts.reserve(devices.size());
    for (const AuditedDevice& device : devices) {
        doubts.push_back(device.doubt);
    }
    return doubts;
}

std::string questionText(const Difference& difference)
{
    return name(difference.question) +
           (difference.question == Question::partition ? " " + std::to_string(difference.partition) : std::string());
}

std::string verdictText(Verdict verdict, const AuditedDevice& device)
{
    return name(verdict) + std::string(device.doubt.isThere() ? ", unsure" : "");
}

bool holds(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Only rows are left out: the summary and the exit status are about all differences.
bool isWanted(const AuditOptions& request, const Difference& difference)
{
    return (request.quirks.empty() || holds(request.quirks, difference.quirk)) &&
           !holds(request.quirksLeftOut, difference.quirk);
}

bool isShown(const AuditOptions& request, const AuditedDevice& device)
{
    const bool mayAgree = !request.onlyDifferences && request.quirks.empty();
    return device.differences.empty()
               ? mayAgree
               : std::any_of(device.differences.begin(), device.differences.end(),
                             [&](const Difference& difference) { return isWanted(request, difference); });
}

void requireKnownQuirks(const std::vector<std::string>& names)
{
    const std::vector<std::string> known(std::begin(quirk::all), std::end(quirk::all));
    for (const std::string& name : names) {
        if (!holds(known, name)) {
            throw CommandError("'" + name + "' is no quirk of an answer; the quirks are " + enumeration(known));
        }
    }
}

// The installed page, if there is one; otherwise its name in the source tree.
std::string pageOfQuirks()
{
    std::error_code none;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", none);
    const std::filesystem::path page = (program.parent_path() / KIVCLAIM_PAGE_OF_QUIRKS).lexically_normal();
    return std::filesystem::exists(page, none) ? page.string() : "docs/quirks.md";
}

// The rows of the table, and which differences they show.
class Rows {
public:
    Rows(std::vector<AuditRow>& rows, const AuditOptions& request) : rows(rows), request(request) {}

    void add(const AuditedDevice& device)
    {
        if (device.differences.empty() && !request.onlyDifferences && request.quirks.empty()) {
            rows.push_back({device.path, "all", description(device.library), device.kernel.description(),
                            verdictText(Verdict::agrees, device), "", ""});
        }
        for (const Difference& difference : device.differences) {
            if (isWanted(request, difference)) {
                rows.push_back({device.path, questionText(difference), difference.library, difference.kernel,
                                verdictText(verdictOn(difference), device), difference.quirk, difference.reason});
            }
        }
    }

    // Disks and partitions whose only difference is that they are paths of this map.
    void addFolded(const std::vector<const AuditedDevice*>& paths)
    {
        const AuditedDevice& first = *paths.front();
        const Difference& difference = first.differences.front();
        if (paths.size() == 1 || !isWanted(request, difference)) {
            add(first);
            return;
        }
        const std::string map = first.kernel.map();
        rows.push_back({first.path + " and " + std::to_string(paths.size() - 1) + " more", questionText(difference),
                        difference.library, "paths of " + map, verdictText(verdictOn(difference), first),
                        difference.quirk, "the names are disks'; that " + map + " uses them does not count"});
    }

private:
    std::vector<AuditRow>& rows;
    const AuditOptions& request;
};

bool isOnlyPathOfAMap(const AuditedDevice& device)
{
    return device.differences.size() == 1 && device.differences.front().quirk == quirk::pathOfAMap;
}

// One row for all paths of a map, at the place of the first path.
void addFoldedRows(Rows& rows, const std::vector<AuditedDevice>& devices)
{
    std::map<std::string, std::vector<const AuditedDevice*>> pathsOfMaps;
    for (const AuditedDevice& device : devices) {
        if (isOnlyPathOfAMap(device)) {
            pathsOfMaps[device.kernel.map()].push_back(&device);
        }
    }
    for (const AuditedDevice& device : devices) {
        if (!isOnlyPathOfAMap(device)) {
            rows.add(device);
        } else if (pathsOfMaps[device.kernel.map()].front() == &device) {
            rows.addFolded(pathsOfMaps[device.kernel.map()]);
        }
    }
}

std::string counted(std::size_t count, const char* one, const char* more)
{
    return std::to_string(count) + " " + (count == 1 ? one : more);
}

std::string summaryText(const Summary& summary)
{
    return counted(summary.devices, "device", "devices") + ": " + counted(summary.agree, "agrees", "agree") + ", " +
           counted(summary.quirks, "differs", "differ") + " by known quirks (see " + pageOfQuirks() + "), " +
           counted(summary.unknown, "differs", "differ") + " otherwise" +
           (summary.unsure == 0 ? "" : "; the answers about " + std::to_string(summary.unsure) + " are unsure");
}

std::vector<AuditRow> rowsOf(const std::vector<AuditedDevice>& devices, const AuditOptions& request)
{
    std::vector<AuditRow> texts;
    Rows rows(texts, request);
    if (request.onlyDifferences && !request.noFold) {
        addFoldedRows(rows, devices);
    } else {
        std::for_each(devices.begin(), devices.end(), [&](const AuditedDevice& device) { rows.add(device); });
    }
    return texts;
}

void printTable(const std::vector<AuditedDevice>& devices, const Summary& summary, const AuditOptions& request)
{
    TableForm form;
    form.name = "devices";
    std::vector<TableColumn> heads;
    for (const char* const column : auditColumns) {
        heads.push_back({column, ColumnType::text});
    }
    Table table(form, heads);
    for (const AuditRow& row : rowsOf(devices, request)) {
        table.add({row.begin(), row.end()});
    }
    table.print();
    printLine(summaryText(summary));
}

Json textOrNull(const std::string& text)
{
    return text.empty() ? Json() : Json(printableText(text));
}

Json toJson(const std::vector<PartitionPath>& partitions)
{
    Json list = Json::array();
    for (const PartitionPath& partition : partitions) {
        list.push_back({{"number", partition.number}, {"path", printableText(partition.path)}});
    }
    return list;
}

Json toJson(const LibraryAnswer& answer)
{
    return {{"claimed", answer.level != 0},
            {"level", answer.level},
            {"stack", printableText(answer.stack)},
            {"partition", answer.isPartition ? Json(answer.partition) : Json()},
            {"whole", answer.isPartition ? textOrNull(answer.wholeDevice) : Json()},
            {"partitions", toJson(answer.partitions)}};
}

Json toJson(const KernelTruth& device)
{
    return {{"exists", device.exists()},
            {"is", printableText(device.description())},
            {"stack", device.stack()},
            {"path", textOrNull(device.path())},
            {"number", textOrNull(device.number())},
            {"uuid", textOrNull(device.uuid())},
            {"map", textOrNull(device.map())},
            {"partition", device.partition() != 0 ? Json(device.partition()) : Json()},
            {"whole", textOrNull(device.wholeDevice())},
            {"partitions", toJson(device.partitions())}};
}

Json toJson(const Difference& difference)
{
    Json json;
    json["question"] = name(difference.question);
    json["partition"] = difference.question == Question::partition ? Json(difference.partition) : Json();
    json["library"] = printableText(difference.library);
    json["kernel"] = printableText(difference.kernel);
    json["verdict"] = name(verdictOn(difference));
    json["quirk"] = textOrNull(difference.quirk);
    json["reason"] = printableText(difference.reason);
    return json;
}

Json toJson(const AuditedDevice& device, const AuditOptions& request)
{
    Json differences = Json::array();
    for (const Difference& difference : device.differences) {
        if (isWanted(request, difference)) {
            differences.push_back(toJson(difference));
        }
    }
    Json json = {{"device", printableText(device.path)},
                 {"verdict", name(verdictOn(device))},
                 {"library", toJson(device.library)},
                 {"kernel", toJson(device.kernel)},
                 {"differences", std::move(differences)}};
    if (device.doubt.isThere()) {
        json["unsure"] = printableText(device.doubt.text());
    }
    return json;
}

void printJson(const std::vector<AuditedDevice>& devices, const Summary& summary, const AuditOptions& request)
{
    Json list = Json::array();
    for (const AuditedDevice& device : devices) {
        if (isShown(request, device)) {
            list.push_back(toJson(device, request));
        }
    }
    const Json counts = {{"devices", summary.devices},
                         {"agree", summary.agree},
                         {"quirks", summary.quirks},
                         {"unknown", summary.unknown},
                         {"unsure", summary.unsure}};
    printLine(Json{{"devices", std::move(list)}, {"summary", counts}}.dump(3));
}

}  // namespace

AuditTable auditTable(const SessionOptions& options, const AuditOptions& request)
{
    Session session(options);
    std::vector<AuditedDevice> devices;
    Auditor auditor(options, session);
    auditor.audit(request.paths, devices);
    VolumeListings volumes;
    explainDifferences(AskedMachine(session.played()), volumes, devices);
    return {rowsOf(devices, request), summaryText(summaryOf(devices))};
}

ExitStatus audit(const SessionOptions& options, const AuditOptions& request)
{
    requireKnownQuirks(request.quirks);
    requireKnownQuirks(request.quirksLeftOut);
    Session session(options);
    std::vector<AuditedDevice> devices;
    Auditor auditor(options, session);  // the kernel's answers point into its readings, so it must outlive them
    const ExitStatus asked = auditor.audit(request.paths, devices);
    VolumeListings volumes;
    explainDifferences(AskedMachine(session.played()), volumes, devices);
    if (!options.noWarnings) {
        complainOfDoubts(doubtsOf(devices));
    }
    const Summary summary = summaryOf(devices);
    if (request.metrics) {
        printLine(metricsOf(devices));
    } else if (request.json) {
        printJson(devices, summary, request);
    } else {
        printTable(devices, summary, request);
    }
    const ExitStatus found = summary.unsure != 0 ? answeredUnsure : summary.unknown != 0 ? answeredNo : answeredYes;
    return worse(asked, found);
}

}  // namespace kivclaim::tools
