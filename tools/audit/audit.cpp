// The library's answers about devices beside the kernel's, with a reason for each difference.
#include "host/printable_text.h"
#include "tools/audit/audited_device.h"
#include "tools/audit/known_quirks.h"
#include "tools/audit/metrics.h"
#include "tools/commands.h"
#include "tools/output.h"
#include "tools/path_input.h"
#include "tools/table.h"

#include <sys/stat.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>

using kivclaim::host::printableText;
using kivclaim::machine::Device;
using kivclaim::machine::Machine;
using kivclaim::machine::ReadError;
using kivclaim::machine::Root;
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
    std::size_t unknown = 0;  // devices with a difference that is none
};

Summary summaryOf(const std::vector<AuditedDevice>& devices)
{
    Summary summary;
    summary.devices = devices.size();
    for (const AuditedDevice& device : devices) {
        const Verdict verdict = verdictOn(device);
        ++(verdict == Verdict::agrees ? summary.agree : verdict == Verdict::quirk ? summary.quirks : summary.unknown);
    }
    return summary;
}

// Where the kernel's account is taken from: one reading of the machine for all devices.
class Truths {
public:
    explicit Truths(const Session& session) : played(session.played()) {}

    // Throws CommandError when the devices cannot be listed.
    const Machine& machine()
    {
        try {
            return played != nullptr ? played->devices() : readings.empty() ? readAgain() : readings.back();
        } catch (const ReadError&) {
            throw CommandError("cannot read the list of block devices; is sysfs mounted on /sys?");
        }
    }

    // What is behind a path. A device that is new, or another one than before, makes it read the machine again: paths
    // may come from standard input for a long time.
    KernelTruth behind(const std::string& path)
    {
        if (played != nullptr) {
            return KernelTruth(played->devices(), path);
        }
        try {
            const KernelTruth truth(readings.empty() ? readAgain() : readings.back(), path);
            return isOutdated(path) ? KernelTruth(readAgain(), path) : truth;
        } catch (const ReadError&) {
            struct stat file {};
            const bool isOther = stat(path.c_str(), &file) == 0 && !S_ISBLK(file.st_mode);
            return isOther ? KernelTruth::ofOtherFile() : KernelTruth();
        }
    }

private:
    // Those who were told of earlier readings keep them.
    const Machine& readAgain() { return readings.emplace_back(Machine::read(Root::live(), KernelTruth::facts)); }

    bool isOutdated(const std::string& path) const
    {
        const Machine& latest = readings.back();
        const Device* const device = latest.byPath(path);
        return device != nullptr ? !latest.isStillThere(*device) : latest.numberAt(path).has_value();
    }

    const PlayedMachine* played;
    std::deque<Machine> readings;
};

std::string whyUnsure(const Session& session, const AuditedDevice& device)
{
    std::string reason = session.whyUnsure();
    // A strange text is given as it is, so it hides nothing.
    const bool isDamaged = session.played() != nullptr && (device.kernel.marks() & ~machine::notUtf8) != 0;
    if (isDamaged) {
        reason +=
            (reason.empty() ? "" : " and ") + std::string("what was recorded of the device is incomplete or wrong");
    }
    return reason;
}

// In the order of their names, as people count. Those without a node cannot be asked about.
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

// An empty list of paths stands for all devices of the machine.
ExitStatus audit(Session& session, Truths& truths, const std::vector<std::string>& paths,
                 std::vector<AuditedDevice>& devices)
{
    const auto ask = [&](const std::string& path, const KernelTruth& truth) {
        AuditedDevice device = audited(session.manager, path, truth);
        device.unsure = whyUnsure(session, device);
        return device;
    };
    if (!paths.empty()) {
        return forEachPath(paths, [&](const std::string& path) {
            devices.push_back(ask(path, truths.behind(path)));
            return answeredYes;
        });
    }
    const Machine& machine = truths.machine();
    for (const Device* const device : devicesWithNodes(machine, session.played() == nullptr)) {
        AuditedDevice answers = ask(std::string(device->node), KernelTruth(machine, *device));
        // What has gone meanwhile cannot be compared.
        if (answers.differences.empty() || machine.isStillThere(*device)) {
            devices.push_back(std::move(answers));
        }
    }
    return answeredYes;
}

// Says on standard error why answers are unsure: once for each reason.
void complainOfUnsure(const std::vector<AuditedDevice>& devices)
{
    std::map<std::string, std::size_t> reasons;
    for (const AuditedDevice& device : devices) {
        ++reasons[device.unsure];
    }
    for (const auto& [reason, count] : reasons) {
        if (!reason.empty()) {
            complain((count == 1 ? "the answers about 1 device are"
                                 : "the answers about " + std::to_string(count) + " devices are") +
                     std::string(" unsure, because ") + reason);
        }
    }
}

std::string questionText(const Difference& difference)
{
    return name(difference.question) +
           (difference.question == Question::partition ? " " + std::to_string(difference.partition) : std::string());
}

std::string verdictText(Verdict verdict, const AuditedDevice& device)
{
    return name(verdict) + std::string(device.unsure.empty() ? "" : ", unsure");
}

void addLines(Table& table, const AuditedDevice& device)
{
    if (device.differences.empty()) {
        table.add({device.path, "all", description(device.library), device.kernel.description(),
                   verdictText(Verdict::agrees, device), "", ""});
    }
    for (const Difference& difference : device.differences) {
        table.add({device.path, questionText(difference), difference.library, difference.kernel,
                   verdictText(verdictOn(difference), device), difference.quirk, difference.reason});
    }
}

std::string counted(std::size_t count, const char* one, const char* more)
{
    return std::to_string(count) + " " + (count == 1 ? one : more);
}

void printTable(const std::vector<AuditedDevice>& devices, const Summary& summary, bool onlyDifferences)
{
    TableForm form;
    form.name = "devices";
    Table table(form, {{"DEVICE", ColumnType::text},
                       {"QUESTION", ColumnType::text},
                       {"LIBRARY", ColumnType::text},
                       {"KERNEL", ColumnType::text},
                       {"VERDICT", ColumnType::text},
                       {"QUIRK", ColumnType::text},
                       {"REASON", ColumnType::text}});
    for (const AuditedDevice& device : devices) {
        if (!onlyDifferences || !device.differences.empty()) {
            addLines(table, device);
        }
    }
    table.print();
    printLine(counted(summary.devices, "device", "devices") + ": " + counted(summary.agree, "agrees", "agree") + ", " +
              counted(summary.quirks, "differs", "differ") + " by known quirks (see docs/quirks.md), " +
              counted(summary.unknown, "differs", "differ") + " otherwise");
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

Json toJson(const AuditedDevice& device)
{
    Json differences = Json::array();
    for (const Difference& difference : device.differences) {
        differences.push_back(toJson(difference));
    }
    Json json = {{"device", printableText(device.path)},
                 {"verdict", name(verdictOn(device))},
                 {"library", toJson(device.library)},
                 {"kernel", toJson(device.kernel)},
                 {"differences", std::move(differences)}};
    if (!device.unsure.empty()) {
        json["unsure"] = printableText(device.unsure);
    }
    return json;
}

void printJson(const std::vector<AuditedDevice>& devices, const Summary& summary, bool onlyDifferences)
{
    Json list = Json::array();
    for (const AuditedDevice& device : devices) {
        if (!onlyDifferences || !device.differences.empty()) {
            list.push_back(toJson(device));
        }
    }
    const Json counts = {{"devices", summary.devices},
                         {"agree", summary.agree},
                         {"quirks", summary.quirks},
                         {"unknown", summary.unknown}};
    printLine(Json{{"devices", std::move(list)}, {"summary", counts}}.dump(3));
}

}  // namespace

ExitStatus audit(const SessionOptions& options, const AuditOptions& request)
{
    Session session(options, Questions::many);
    std::vector<AuditedDevice> devices;
    Truths truths(session);
    const ExitStatus asked = audit(session, truths, request.paths, devices);
    VolumeListings volumes;
    explainDifferences(AskedMachine(session.played()), volumes, devices);
    complainOfUnsure(devices);
    const Summary summary = summaryOf(devices);
    if (request.metrics) {
        printLine(metricsOf(devices));
    } else if (request.json) {
        printJson(devices, summary, request.onlyDifferences);
    } else {
        printTable(devices, summary, request.onlyDifferences);
    }
    return worse(asked, summary.unknown == 0 ? answeredYes : answeredNo);
}

}  // namespace kivclaim::tools
