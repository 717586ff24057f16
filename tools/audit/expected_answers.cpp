#include "tools/audit/expected_answers.h"

#include "framework/cfiexecpipe.h"
#include "tools/stack_table.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdlib>
#include <string_view>

namespace kivclaim::tools {

namespace {

// Not the constant of tools/list_command.h, on purpose: see expected_answers.h.
constexpr char listCommand[] = "/sbin/lvdisplay";
constexpr unsigned long listTimeoutSeconds = 600;
// The native module cuts a partition's path after this many characters.
constexpr std::size_t longestNativePath = 1023;

bool contains(const std::string& text, std::string_view part)
{
    return text.find(part) != std::string::npos;
}

// The text after the last slash of a line, or its last blank when it has no slash.
std::string lastWord(const std::string& line)
{
    const std::size_t slash = line.rfind('/');
    return line.substr((slash != std::string::npos ? slash : line.rfind(' ')) + 1);
}

VolumeListing listing()
{
    VolumeListing result;
    std::vector<std::string> lines;
    ztfi_pdk_4_4::CFiExecPipePosix runner(1);
    try {
        result.failed = runner.Exec(listCommand, lines, "", listTimeoutSeconds, "", "", "") != 0;
    } catch (const ztfi_pdk_4_4::EFiExecPipe&) {
        result.failed = true;
    }
    std::string volume;
    for (const std::string& line : lines) {
        if (contains(line, "LV Name")) {
            volume = lastWord(line);
        } else if (contains(line, "VG Name") && !volume.empty()) {
            result.paths.insert(std::string(deviceMapperStack.pattern) + lastWord(line) + "-" + volume);
            volume.clear();
        }
    }
    return result;
}

unsigned int lastDigit(const std::string& path)
{
    return static_cast<unsigned int>(path.back() - '0');
}

class ExpectedAnswers {
public:
    ExpectedAnswers(const AskedMachine& asked, VolumeListings& volumes, const std::string& path)
        : asked(asked), volumes(volumes), path(path)
    {
    }

    LibraryAnswer answer(const std::vector<PartitionPath>& partitions)
    {
        expectClaim();
        if (result.level == 0) {
            return result;
        }
        result.wholeDevice = path;
        mapper = result.stack == deviceMapperStack.name;
        result.isPartition =
            endsInDigit(path) && (!mapper || endsLikeAPartition(path) || !openableNeighbour(asked, path).empty());
        if (result.isPartition) {
            takeApart();
        }
        for (const PartitionPath& partition : partitions) {
            result.partitions.push_back({partition.number, partitionPath(std::to_string(partition.number))});
        }
        return result;
    }

private:
    // Of two modules that claim at the same level, the one that was registered first is asked.
    void expectClaim()
    {
        result.stack = noStack;
        if (contains(path, powerPathStack.pattern)) {
            result.stack = powerPathStack.name;
            result.level = ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY;
        } else if (contains(path, deviceMapperStack.pattern) &&
                   (volumes.remembered().failed || !volumes.remembered().names(path))) {
            result.stack = deviceMapperStack.name;
            result.level = ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY;
        } else if (contains(path, nativeStack.pattern) && path != nativeStack.pattern) {
            result.stack = nativeStack.name;
            result.level = ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NATIVE;
        }
    }

    void takeApart()
    {
        if (!mapper) {
            while (endsInDigit(result.wholeDevice)) {
                result.wholeDevice.pop_back();
            }
            const char* const digits = path.c_str() + result.wholeDevice.size();
            result.partition = static_cast<unsigned int>(std::strtol(digits, nullptr, 10));
            return;
        }
        const bool probed = partitionNames(asked) == PartitionNames::probed;
        const std::string parent = probed ? openableNeighbour(asked, path) : withoutLast(path, 6);
        if (!probed || !parent.empty()) {
            result.wholeDevice = parent;
            result.partition = lastDigit(path);
        }
    }

    std::string partitionPath(const std::string& number) const
    {
        if (mapper) {
            return mapperPartition(number);
        }
        return result.stack == nativeStack.name ? (path + number).substr(0, longestNativePath) : path + number;
    }

    std::string mapperPartition(const std::string& number) const
    {
        switch (partitionNames(asked)) {
            case PartitionNames::underscore:
                return path + "_part" + number;
            case PartitionNames::dash:
                return path + "-part" + number;
            case PartitionNames::probed:
                break;
        }
        if (endsInDigit(path)) {
            return path + "p" + number;
        }
        for (const char* const separator : {"", "p"}) {
            std::string candidate = path;
            candidate.append(separator).append(number);
            if (asked.canBeOpened(candidate)) {
                return candidate;
            }
        }
        return path;
    }

    const AskedMachine& asked;
    VolumeListings& volumes;
    const std::string& path;
    LibraryAnswer result;
    bool mapper = false;
};

}  // namespace

VolumeListings::VolumeListings(VolumeListing remembered, VolumeListing now)
    : first(std::move(remembered)), second(std::move(now))
{
}

const VolumeListing& VolumeListings::remembered()
{
    if (!first) {
        first = listing();
    }
    return *first;
}

const VolumeListing& VolumeListings::now()
{
    if (!second) {
        remembered();  // which the new snapshot would hide
        snapshot.emplace(std::vector<std::string>{listCommand});
        second = listing();
    }
    return *second;
}

LibraryAnswer expectedAnswer(const AskedMachine& asked, VolumeListings& volumes, const std::string& path,
                             const std::vector<PartitionPath>& partitions)
{
    return ExpectedAnswers(asked, volumes, path).answer(partitions);
}

PartitionNames partitionNames(const AskedMachine& asked)
{
    const std::string release = asked.kernelRelease();
    long numbers[3] = {0, 0, 0};
    std::string_view rest = release;
    std::size_t count = 0;
    for (; count < 3 && !rest.empty(); ++count) {
        const std::size_t end = std::min(rest.find_first_of(".-"), rest.size());
        std::from_chars(rest.data(), rest.data() + end, numbers[count]);
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    const auto [major, minor, third] = numbers;
    if ((major == 2 && minor == 6 && third > 26) || (major == 3 && minor == 0)) {
        return PartitionNames::underscore;
    }
    return major > 3 || (major == 3 && minor > 11) ? PartitionNames::dash : PartitionNames::probed;
}

std::string openableNeighbour(const AskedMachine& asked, const std::string& path)
{
    for (const std::size_t characters : {1UL, 2UL}) {
        if (asked.canBeOpened(withoutLast(path, characters))) {
            return withoutLast(path, characters);
        }
    }
    return "";
}

bool endsLikeAPartition(const std::string& path)
{
    return endsInDigit(path) && path.size() > 5 && path.compare(path.size() - 5, 4, "part") == 0;
}

bool endsInDigit(const std::string& path)
{
    return !path.empty() && std::isdigit(static_cast<unsigned char>(path.back())) != 0;
}

std::string withoutLast(const std::string& path, std::size_t characters)
{
    return path.substr(0, path.size() - std::min(path.size(), characters));
}

}  // namespace kivclaim::tools
