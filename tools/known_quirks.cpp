#include "tools/known_quirks.h"

#include "host/command_snapshot.h"
#include "modules/kiv_linux_device_mapper_claim.h"

#include <unistd.h>

#include <cctype>
#include <optional>
#include <string_view>

namespace kivclaim::tools {

namespace {

struct Explanation {
    const char* quirk;  // its name in docs/quirks.md
    std::string reason;
};

constexpr char mapperFolder[] = "/dev/mapper/";

// The string by which a built-in module finds its paths; empty for any other stack.
std::string_view claimString(const std::string& stack)
{
    if (stack == "device-mapper") {
        return mapperFolder;
    }
    if (stack == "powerpath") {
        return "/dev/emcpower";
    }
    return stack == "native" ? "/dev/sd" : "";
}

bool isMapperPath(const std::string& path)
{
    return path.rfind(mapperFolder, 0) == 0;
}

bool endsInDigit(const std::string& path)
{
    return !path.empty() && std::isdigit(static_cast<unsigned char>(path.back())) != 0;
}

std::string withoutLast(const std::string& path, std::size_t characters)
{
    return path.substr(0, path.size() - std::min(path.size(), characters));
}

bool nodeExists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

// The one of the two names that the device-mapper module takes for the whole device and that exists, or nothing.
std::string neighbour(const std::string& path)
{
    for (const std::size_t characters : {1UL, 2UL}) {
        if (nodeExists(withoutLast(path, characters))) {
            return withoutLast(path, characters);
        }
    }
    return "";
}

// LVM writes a dash of a name twice, the library's list once.
std::string withSingleDashes(std::string path)
{
    for (std::size_t at = path.find("--"); at != std::string::npos; at = path.find("--", at + 1)) {
        path.erase(at, 1);
    }
    return path;
}

// Two looks at the list of logical volumes: the one that the session remembers, and one of now. Each is taken when it
// is first needed.
class VolumeLists {
public:
    // Without a snapshot of the session's, this is a look of now as well.
    bool rememberedFails()
    {
        if (!rememberedStatus) {
            CKivDeviceMapperClaim module;
            rememberedStatus = module.createLvmDeviceNamesList();
        }
        return *rememberedStatus != 0;
    }

    bool nowNames(const std::string& path)
    {
        if (!snapshot) {
            rememberedFails();  // which this look would hide
            snapshot.emplace(std::vector<std::string>{"/sbin/lvdisplay"});
        }
        return now.isLinuxLogicalVolume(path) != 0;
    }

private:
    std::optional<int> rememberedStatus;
    std::optional<kivclaim::host::CommandSnapshot> snapshot;
    CKivDeviceMapperClaim now;
};

class Explainer {
public:
    Explainer(VolumeLists& volumes, const AuditedDevice& device) : volumes(volumes), device(device) {}

    std::optional<Explanation> explain(const Difference& difference)
    {
        if (std::optional<Explanation> byName = explainName()) {
            return byName;
        }
        switch (difference.question) {
            case Question::claim:
                return kernel.kind == KernelKind::logicalVolume ? explainClaimedVolume() : explainClaim();
            case Question::isPartition:
                return explainIsPartition();
            case Question::whole:
                return explainWhole();
            case Question::partition:
                return explainPartition(difference);
            case Question::number:
                break;
        }
        return Explanation{"name-decides", "the node that has this name is another device's"};
    }

private:
    // All that follows from asking by a name which is not the kernel's name for the device.
    std::optional<Explanation> explainName() const
    {
        const std::string_view prefix = claimString(library.stack);
        if (!prefix.empty() && path.rfind(prefix, 0) != 0) {
            return Explanation{"prefix-anywhere", "'" + std::string(prefix) + "' counts wherever it stands in a path"};
        }
        const bool builtIn = !prefix.empty() || library.level == 0;
        if (!builtIn || path == kernel.path) {
            return std::nullopt;
        }
        if (!kernel.exists()) {
            return Explanation{"name-decides", "the name is enough, nothing needs to be there"};
        }
        return Explanation{"name-decides", "the name decides; the device behind it, " + numberText(kernel.number) +
                                               ", is the kernel's " + kernel.path};
    }

    std::optional<Explanation> explainClaimedVolume()
    {
        if (library.stack != "device-mapper") {
            return std::nullopt;
        }
        if (volumes.rememberedFails()) {
            return Explanation{"failed-listing", "/sbin/lvdisplay failed, so no volume is known as one"};
        }
        if (volumes.nowNames(path)) {
            return Explanation{"stale-list", "the list of volumes was read before this one was created"};
        }
        const std::string listed = withSingleDashes(path);
        if (listed != path && volumes.nowNames(listed)) {
            return Explanation{"dashed-volume", "the list of volumes has it as " + listed};
        }
        return Explanation{"unlisted-volume", "/sbin/lvdisplay does not print this volume"};
    }

    std::optional<Explanation> explainClaim()
    {
        if (library.stack == "native" && !kernel.map.empty()) {
            return Explanation{"path-of-a-map", "the name is a disk's; that " + kernel.map + " uses it does not count"};
        }
        if (library.stack == "device-mapper" && kernel.kind == KernelKind::otherMapping) {
            return Explanation{"any-mapping", "whatever is under /dev/mapper/ and no logical volume is claimed"};
        }
        if (library.level == 0 && kernel.kind == KernelKind::multipathMap && isMapperPath(path)) {
            return volumes.nowNames(path)
                       ? Explanation{"dashed-volume", "the list has a volume with dashes under this name"}
                       : Explanation{"stale-list", "the list was read while this was the name of a volume"};
        }
        return std::nullopt;
    }

    std::optional<Explanation> explainIsPartition() const
    {
        if (library.stack != "device-mapper") {
            return std::nullopt;
        }
        return kernel.partition != 0 ? explainUnknownPartition() : explainSupposedPartition();
    }

    std::optional<Explanation> explainUnknownPartition() const
    {
        if (!endsInDigit(path)) {
            return Explanation{"name-decides", "the name does not end in a number, so it is no partition's"};
        }
        if (!neighbour(path).empty()) {
            return std::nullopt;
        }
        const std::string missing = "neither " + withoutLast(path, 1) + " nor " + withoutLast(path, 2) + " exists";
        const bool named = path == kernel.wholeDevice + "-part" + std::to_string(kernel.partition) ||
                           path == kernel.wholeDevice + "_part" + std::to_string(kernel.partition);
        return Explanation{named ? "missing-neighbour" : "name-decides", missing};
    }

    std::optional<Explanation> explainSupposedPartition() const
    {
        if (!endsInDigit(path)) {
            return std::nullopt;
        }
        if (path.size() > 5 && path.compare(path.size() - 5, 4, "part") == 0) {
            return Explanation{"partition-like-name", "the name ends like a partition's"};
        }
        const std::string parent = neighbour(path);
        if (parent.empty()) {
            return std::nullopt;
        }
        return Explanation{"partition-like-name", "it ends in a digit, and " + parent + " exists"};
    }

    std::optional<Explanation> explainWhole() const
    {
        const bool cut = library.stack == "device-mapper" && kernel.partition != 0 && endsInDigit(path) &&
                         library.partition == static_cast<unsigned int>(path.back() - '0') &&
                         library.wholeDevice == withoutLast(path, 6);
        if (!cut) {
            return std::nullopt;
        }
        if (kernel.partition > 9) {
            return Explanation{"last-digit", "six characters are cut and the last one is the number"};
        }
        return Explanation{"six-characters", "six characters are cut, the length of -part and a digit"};
    }

    // The release decides between these, whatever the nodes are called.
    std::optional<Explanation> explainPartition(const Difference& difference) const
    {
        const std::string number = std::to_string(difference.partition);
        for (const char* const suffix : {"-part", "_part", "p", ""}) {
            if (library.stack == "device-mapper" && difference.library == path + suffix + number) {
                return Explanation{"release-decides", "the kernel's release decides on the name, here " +
                                                          (suffix + number) + ", not the nodes"};
            }
        }
        return std::nullopt;
    }

    VolumeLists& volumes;
    const AuditedDevice& device;
    const std::string& path = device.path;
    const LibraryAnswer& library = device.library;
    const KernelDevice& kernel = device.kernel;
};

}  // namespace

void explainDifferences(std::vector<AuditedDevice>& devices)
{
    VolumeLists volumes;
    for (AuditedDevice& device : devices) {
        Explainer explainer(volumes, device);
        for (Difference& difference : device.differences) {
            const std::optional<Explanation> found = explainer.explain(difference);
            difference.quirk = found ? found->quirk : "";
            difference.reason = found ? found->reason : "no known quirk explains this";
        }
    }
}

}  // namespace kivclaim::tools
