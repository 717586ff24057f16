#include "tools/report/reported_machine.h"

#include "claim/kiv_release.h"
#include "tools/recording/directory.h"
#include "tools/recording/recorder.h"
#include "tools/utc_time.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <utility>

using kivclaim::machine::DeviceIndex;
using kivclaim::machine::Machine;

namespace kivclaim::tools {

namespace {

std::string valueOf(const std::map<std::string, std::string>& values, const std::string& name)
{
    const auto found = values.find(name);
    return found != values.end() ? found->second : "";
}

Origin originOfThisMachine()
{
    utsname system{};
    ::uname(&system);
    Origin origin;
    origin.host = system.nodename;
    origin.source = "this machine";
    origin.time = utcNow();
    origin.versions = toolVersions();
    origin.versions["kernel"] = system.release;
    return origin;
}

Origin originOfRecording(const SessionOptions& options)
{
    Origin origin;
    origin.source = options.sysroot;
    const std::string directory = options.root().path();
    if (hasManifest(directory)) {
        const Recording recording = readDirectory(directory);
        origin.host = valueOf(recording.system, "nodename");
        origin.time = recording.time;
        origin.isRedacted = recording.isRedacted;
        origin.versions = recording.versions;
        origin.versions["kivclaim that recorded"] = recording.kivclaim;
        origin.versions["kernel"] = valueOf(recording.system, "release");
    }
    const bool isKnown = !valueOf(origin.versions, "kernel").empty();
    if (!isKnown) {
        origin.versions["kernel"] = PlayedMachine(options.root()).kernelRelease();
    }
    if (origin.host.empty()) {
        origin.host = std::filesystem::path(options.sysroot).filename().string();
    }
    return origin;
}

Origin originOf(const SessionOptions& options)
{
    Origin origin = options.root().isLive() ? originOfThisMachine() : originOfRecording(options);
    origin.versions["kivclaim"] = kivclaim_release_identification;
    return origin;
}

std::vector<DeviceIndex> devicesWithNodes(const Machine& machine)
{
    std::vector<DeviceIndex> devices;
    for (DeviceIndex i = 0; i < machine.devices().size(); ++i) {
        if (!machine.devices()[i].hidden && !machine.devices()[i].node.empty()) {
            devices.push_back(i);
        }
    }
    std::sort(devices.begin(), devices.end(), [&](DeviceIndex one, DeviceIndex other) {
        return strverscmp(machine.devices()[one].node.data(), machine.devices()[other].node.data()) < 0;
    });
    return devices;
}

}  // namespace

ReportedMachine reportedMachine(const SessionOptions& options)
{
    ReportedMachine reported{Machine::read(options.root(), kivclaim::machine::allFacts), {}, {}, {}, {}, {}, {}};
    const Machine& machine = reported.machine;
    {
        DeviceQuestions questions(options, machine, true);
        reported.devices = devicesWithNodes(machine);
        reported.answers.resize(machine.devices().size());
        for (const DeviceIndex device : reported.devices) {
            reported.answers[device] = questions.ask(machine.devices()[device]);
            if (reported.answers[device].doubt.isThere()) {
                reported.doubts.push_back(reported.answers[device].doubt);
            }
        }
        reported.luns = lunRows(machine, questions);
    }
    AuditOptions audit;
    audit.onlyDifferences = true;
    reported.audit = auditTable(options, audit);
    reported.origin = originOf(options);
    return reported;
}

}  // namespace kivclaim::tools
