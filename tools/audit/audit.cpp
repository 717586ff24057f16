// The library's answers about devices beside the kernel's, with a reason for each difference.
#include "host/printable_text.h"
#include "tools/audit/audited_device.h"
#include "tools/audit/known_quirks.h"
#include "tools/block_devices.h"
#include "tools/commands.h"
#include "tools/output.h"
#include "tools/path_input.h"
#include "tools/table.h"

#include <nlohmann/json.hpp>

#include <algorithm>

using kivclaim::host::printableText;
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

// An empty list of paths stands for all devices of this machine.
ExitStatus audit(CKivClaimManager& manager, const std::vector<std::string>& paths, std::vector<AuditedDevice>& devices)
{
    const Kernel kernel;
    if (!paths.empty()) {
        return forEachPath(paths, [&](const std::string& path) {
            devices.push_back(audited(manager, path, kernel.deviceBehind(path)));
            return answeredYes;
        });
    }
    for (const BlockDevice& device : blockDevices()) {
        KernelDevice truth = kernel.deviceAt(device.sysfsPath);
        if (!truth.exists()) {
            continue;
        }
        AuditedDevice answers = audited(manager, device.path, std::move(truth));
        // What has gone meanwhile cannot be compared.
        if (answers.differences.empty() || kernel.deviceAt(device.sysfsPath).exists()) {
            devices.push_back(std::move(answers));
        }
    }
    return answeredYes;
}

std::string questionText(const Difference& difference)
{
    return name(difference.question) +
           (difference.question == Question::partition ? " " + std::to_string(difference.partition) : std::string());
}

void addLines(Table& table, const AuditedDevice& device)
{
    if (device.differences.empty()) {
        table.add({device.path, "all", description(device.library), description(device.kernel), name(Verdict::agrees),
                   "", ""});
    }
    for (const Difference& difference : device.differences) {
        table.add({device.path, questionText(difference), difference.library, difference.kernel,
                   name(verdictOn(difference)), difference.quirk, difference.reason});
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

Json toJson(const std::vector<KernelPartition>& partitions)
{
    Json list = Json::array();
    for (const KernelPartition& partition : partitions) {
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

Json toJson(const KernelDevice& device)
{
    return {{"exists", device.exists()},
            {"is", printableText(description(device))},
            {"stack", kernelStack(device)},
            {"path", textOrNull(device.path)},
            {"number", device.exists() ? Json(numberText(device.number)) : Json()},
            {"uuid", textOrNull(device.uuid)},
            {"map", textOrNull(device.map)},
            {"partition", device.partition != 0 ? Json(device.partition) : Json()},
            {"whole", textOrNull(device.wholeDevice)},
            {"partitions", toJson(device.partitions)}};
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
    return {{"device", printableText(device.path)},
            {"verdict", name(verdictOn(device))},
            {"library", toJson(device.library)},
            {"kernel", toJson(device.kernel)},
            {"differences", std::move(differences)}};
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
    const ExitStatus asked = audit(session.manager, request.paths, devices);
    VolumeListings volumes;
    explainDifferences(volumes, devices);
    const Summary summary = summaryOf(devices);
    if (request.json) {
        printJson(devices, summary, request.onlyDifferences);
    } else {
        printTable(devices, summary, request.onlyDifferences);
    }
    return worse(asked, summary.unknown == 0 ? answeredYes : answeredNo);
}

}  // namespace kivclaim::tools
