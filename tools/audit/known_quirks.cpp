#include "tools/audit/known_quirks.h"

#include "tools/audit/expected_answers.h"
#include "tools/quirk_names.h"
#include "tools/stack_table.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace kivclaim::tools {

namespace {

struct Explanation {
    const char* quirk;  // its name in docs/quirks.md
    std::string reason;
};

// The string by which a built-in module finds its paths; empty for any other stack.
std::string_view claimString(const std::string& stack)
{
    const Stack* const known = stackNamed(stack);
    return known != nullptr ? known->pattern : "";
}

// LVM writes a dash of a name twice, the library's list once.
std::string withSingleDashes(std::string path)
{
    for (std::size_t at = path.find("--"); at != std::string::npos; at = path.find("--", at + 1)) {
        path.erase(at, 1);
    }
    return path;
}

class Explainer {
public:
    Explainer(const AskedMachine& asked, VolumeListings& volumes, const AuditedDevice& device)
        : asked(asked), volumes(volumes), device(device)
    {
    }

    std::optional<Explanation> explain(const Difference& difference)
    {
        if (difference.question == Question::number) {
            return Explanation{quirk::nameDecides, "the node that has this name is another device's"};
        }
        if (!isExpected(difference)) {
            return std::nullopt;
        }
        if (std::optional<Explanation> byName = explainName()) {
            return byName;
        }
        switch (difference.question) {
            case Question::claim:
                return kernel.isLogicalVolume() ? explainClaimedVolume() : explainClaim();
            case Question::isPartition:
                return explainIsPartition();
            case Question::whole:
                return explainWhole();
            case Question::partition:
                return explainPartition(difference);
            case Question::number:
                break;
        }
        return std::nullopt;
    }

private:
    // Is the answer the one that the rules give for the name? If not, it is an error of the library's, or another
    // module's.
    bool isExpected(const Difference& difference)
    {
        const LibraryAnswer expected = expectedAnswer(asked, volumes, path, kernel.partitions());
        if (library.stack != expected.stack || library.level != expected.level) {
            return false;
        }
        switch (difference.question) {
            case Question::isPartition:
            case Question::whole:
                return library.isPartition == expected.isPartition && library.wholeDevice == expected.wholeDevice &&
                       library.partition == expected.partition;
            case Question::partition:
                return std::any_of(
                    expected.partitions.begin(), expected.partitions.end(), [&](const PartitionPath& partition) {
                        return partition.number == difference.partition && partition.path == difference.library;
                    });
            default:
                return true;
        }
    }

    // All that follows from asking by a name which is not the kernel's name for the device.
    std::optional<Explanation> explainName() const
    {
        const std::string_view prefix = claimString(library.stack);
        if (!prefix.empty() && path.rfind(prefix, 0) != 0) {
            return Explanation{quirk::prefixAnywhere, "'" + std::string(prefix) + "' counts anywhere in a path"};
        }
        if (path == kernel.path()) {
            return std::nullopt;
        }
        if (!kernel.exists()) {
            return Explanation{quirk::nameDecides, "the name is enough, nothing needs to be there"};
        }
        return Explanation{quirk::nameDecides, "the name decides; the node's device, " + kernel.number() +
                                                   ", is the kernel's " + kernel.path()};
    }

    std::optional<Explanation> explainClaimedVolume()
    {
        if (volumes.remembered().failed) {
            return Explanation{quirk::failedListing, "/sbin/lvdisplay failed, so no volume is known as one"};
        }
        if (volumes.now().names(path)) {
            return Explanation{quirk::staleList, "the list of volumes was read before this one was created"};
        }
        const std::string listed = withSingleDashes(path);
        if (listed != path && volumes.now().names(listed)) {
            return Explanation{quirk::dashedVolume, "the list of volumes has it as " + listed};
        }
        return Explanation{quirk::unlistedVolume, "/sbin/lvdisplay does not print this volume"};
    }

    std::optional<Explanation> explainClaim()
    {
        if (library.stack == nativeStack.name && !kernel.map().empty()) {
            return Explanation{quirk::pathOfAMap,
                               "the name is a disk's; that " + kernel.map() + " uses it does not count"};
        }
        if (library.stack == deviceMapperStack.name && kernel.isOtherMapping()) {
            return Explanation{quirk::anyMapping, "whatever is under /dev/mapper/ and no logical volume is claimed"};
        }
        if (library.level == 0 && kernel.isMultipath()) {
            return volumes.now().names(path)
                       ? Explanation{quirk::dashedVolume, "the list has a volume under this name"}
                       : Explanation{quirk::staleList, "the list was read while this was the name of a volume"};
        }
        return std::nullopt;
    }

    std::optional<Explanation> explainIsPartition() const
    {
        if (library.stack != deviceMapperStack.name) {
            return std::nullopt;
        }
        return kernel.partition() != 0 ? explainUnknownPartition() : explainSupposedPartition();
    }

    std::optional<Explanation> explainUnknownPartition() const
    {
        if (!endsInDigit(path)) {
            return Explanation{quirk::nameDecides, "the name does not end in a number, so it is no partition's"};
        }
        const std::string missing =
            "neither " + withoutLast(path, 1) + " nor " + withoutLast(path, 2) + " can be opened";
        const bool named = path == kernel.wholeDevice() + "-part" + std::to_string(kernel.partition()) ||
                           path == kernel.wholeDevice() + "_part" + std::to_string(kernel.partition());
        return Explanation{named ? quirk::missingNeighbour : quirk::nameDecides, missing};
    }

    std::optional<Explanation> explainSupposedPartition() const
    {
        if (endsLikeAPartition(path)) {
            return Explanation{quirk::partitionLikeName, "the name ends like a partition's"};
        }
        return Explanation{quirk::partitionLikeName,
                           "it ends in a digit, and " + openableNeighbour(asked, path) + " exists"};
    }

    std::optional<Explanation> explainWhole() const
    {
        if (library.stack != deviceMapperStack.name) {
            return std::nullopt;
        }
        if (library.wholeDevice == kernel.wholeDevice()) {
            return Explanation{quirk::nameDecides, "the number in the name is not the partition's"};
        }
        const bool probed = partitionNames(asked) == PartitionNames::probed;
        if (kernel.partition() > 9 && library.wholeDevice != path) {
            return Explanation{quirk::lastDigit, probed ? "the last digit is the number"
                                                        : "six characters are cut and the last one is the number"};
        }
        if (probed) {
            return Explanation{quirk::releaseDecides,
                               "on this kernel release, a partition is called like the whole device "
                               "with a number or p and a number"};
        }
        return Explanation{quirk::sixCharacters, "six characters are cut, the length of -part and a digit"};
    }

    std::optional<Explanation> explainPartition(const Difference& difference) const
    {
        if (library.stack != deviceMapperStack.name) {
            return std::nullopt;
        }
        if (difference.library == path) {
            return Explanation{quirk::unknownRelease,
                               "on this kernel release, a partition's name is the device's name with the number or "
                               "p and the number appended, and no such node exists"};
        }
        return Explanation{quirk::releaseDecides, "the kernel's release decides on the name, here " +
                                                      difference.library.substr(path.size()) + ", not the nodes"};
    }

    const AskedMachine& asked;
    VolumeListings& volumes;
    const AuditedDevice& device;
    const std::string& path = device.path;
    const LibraryAnswer& library = device.library;
    const KernelTruth& kernel = device.kernel;
};

}  // namespace

void explainDifferences(const AskedMachine& asked, VolumeListings& volumes, std::vector<AuditedDevice>& devices)
{
    for (AuditedDevice& device : devices) {
        Explainer explainer(asked, volumes, device);
        for (Difference& difference : device.differences) {
            const std::optional<Explanation> found = explainer.explain(difference);
            difference.quirk = found ? found->quirk : "";
            difference.reason = found ? found->reason : "no known quirk explains this";
        }
    }
}

}  // namespace kivclaim::tools
