#include "tools/audit/metrics.h"

#include "host/printable_text.h"

#include <algorithm>
#include <map>

namespace kivclaim::tools {

namespace {

std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char character : host::printableText(text)) {
        result += character == '"' || character == '\\' ? std::string("\\") + character : std::string(1, character);
    }
    return result + "\"";
}

std::string family(const std::string& name, const std::string& help)
{
    return "# TYPE " + name + " gauge\n# HELP " + name + " " + help + "\n";
}

bool isUnexplained(const Difference& difference)
{
    return difference.quirk.empty();
}

bool differs(const AuditedDevice& device)
{
    return std::any_of(device.differences.begin(), device.differences.end(), isUnexplained);
}

std::string devicesByVerdict(const std::vector<AuditedDevice>& devices)
{
    std::map<std::string, std::size_t> counts = {{"agrees", 0}, {"quirk", 0}, {"differs", 0}};
    for (const AuditedDevice& device : devices) {
        ++counts[device.differences.empty() ? "agrees" : differs(device) ? "differs" : "quirk"];
    }
    std::string text =
        family("kivclaim_audit_devices", "Devices by how the library's answers compare with the kernel's.");
    for (const auto& [verdict, count] : counts) {
        text += "kivclaim_audit_devices{verdict=" + quoted(verdict) + "} " + std::to_string(count) + "\n";
    }
    return text;
}

std::string differencesByQuirk(const std::vector<AuditedDevice>& devices)
{
    std::map<std::string, std::size_t> counts;
    for (const AuditedDevice& device : devices) {
        for (const Difference& difference : device.differences) {
            counts[difference.quirk] += isUnexplained(difference) ? 0 : 1;
        }
    }
    std::string text = family("kivclaim_audit_quirks", "Answers that differ from the kernel's by a known quirk.");
    for (const auto& [quirk, count] : counts) {
        if (!quirk.empty()) {
            text += "kivclaim_audit_quirks{quirk=" + quoted(quirk) + "} " + std::to_string(count) + "\n";
        }
    }
    return text;
}

std::string unexplainedDevices(const std::vector<AuditedDevice>& devices)
{
    std::map<std::string, std::size_t> counts;
    for (const AuditedDevice& device : devices) {
        if (differs(device)) {
            counts[device.path] = static_cast<std::size_t>(
                std::count_if(device.differences.begin(), device.differences.end(), isUnexplained));
        }
    }
    std::string text = family("kivclaim_audit_unexplained",
                              "Answers about a device that differ from the kernel's for no known reason.");
    for (const auto& [path, count] : counts) {
        text += "kivclaim_audit_unexplained{device=" + quoted(path) + "} " + std::to_string(count) + "\n";
    }
    return text;
}

}  // namespace

std::string metricsOf(const std::vector<AuditedDevice>& devices)
{
    const auto unsure = std::count_if(devices.begin(), devices.end(),
                                      [](const AuditedDevice& device) { return device.doubt.isThere(); });
    return devicesByVerdict(devices) + differencesByQuirk(devices) + unexplainedDevices(devices) +
           family("kivclaim_audit_unsure_devices", "Devices about which the answers are unsure.") +
           "kivclaim_audit_unsure_devices " + std::to_string(unsure) + "\n# EOF";
}

}  // namespace kivclaim::tools
