#include "tools/listing/marks.h"

#include "tools/quirk_names.h"
#include "tools/stack_table.h"

#include <utility>

using namespace kivclaim::machine;

namespace kivclaim::tools {

namespace {

constexpr char unsure[] = "unsure";

constexpr std::pair<Mark, const char*> readingMarks[] = {
    {vanished, "vanished"},
    {unreadable, "unreadable"},
    {circle, "circle"},
    {outOfRange, "out-of-range"},
    {notUtf8, "not-utf8"},
    {tooLarge, "too-large"},
    {unknownDevice, "unknown-device"},
};

// LVM writes a dash of a name twice, the library's list once.
std::string withSingleDashes(std::string path)
{
    for (std::size_t at = path.find("--"); at != std::string::npos; at = path.find("--", at + 1)) {
        path.erase(at, 1);
    }
    return path;
}

bool hasFailed(const kivclaim::VolumeListing& listing)
{
    return listing.state() != kivclaim::VolumeListing::State::read;
}

// Why a logical volume is claimed.
const char* quirkOfVolume(const kivclaim::VolumeListing& listing, const std::string& path)
{
    if (hasFailed(listing)) {
        return quirk::failedListing;
    }
    return listing.holds(withSingleDashes(path)) ? quirk::dashedVolume : quirk::unlistedVolume;
}

bool isNamedAfter(const std::string& path, const Device& whole, unsigned int number)
{
    const std::string digits = std::to_string(number);
    const std::string disk(whole.node);
    return path == disk + "-part" + digits || path == disk + "_part" + digits;
}

// What is wrong with the answer about a partition of a mapping, which `whole` is; null for a right answer.
const char* quirkOfPartition(const DeviceAnswer& answer, const std::string& path, const Device& whole,
                             unsigned int number)
{
    if (!answer.isPartition) {
        return isNamedAfter(path, whole, number) ? quirk::missingNeighbour : quirk::nameDecides;
    }
    if (answer.wholeDevice == whole.node) {
        return answer.number == number ? nullptr : quirk::nameDecides;
    }
    if (number > 9 && answer.wholeDevice != path) {
        return quirk::lastDigit;
    }
    return answer.wholeDevice.size() + 6 == path.size() ? quirk::sixCharacters : quirk::releaseDecides;
}

const char* quirkOfMapping(const kivclaim::ClaimAnswer& claimed, const Device& device)
{
    switch (device.kind) {
        case Kind::multipathMap:
        case Kind::multipathPartition:
            return nullptr;
        case Kind::volume:
        case Kind::hiddenVolume:
            return quirkOfVolume(claimed.listing(), claimed.path());
        default:
            return quirk::anyMapping;
    }
}

// About the claim.
const char* quirkOfClaim(const kivclaim::ClaimAnswer& claimed, const Device& device, const Machine& machine)
{
    if (claimed.stack() == deviceMapperStack.name) {
        return quirkOfMapping(claimed, device);
    }
    if (claimed.stack() == nativeStack.name && machine.mapOf(device) != nullptr) {
        return quirk::pathOfAMap;
    }
    const bool isRefusedMap = device.kind == Kind::multipathMap || device.kind == Kind::multipathPartition;
    return claimed.level() == 0 && isRefusedMap && claimed.listing().holds(claimed.path()) ? quirk::dashedVolume
                                                                                           : nullptr;
}

// About what the path is a partition of.
const char* quirkOfName(const kivclaim::ClaimAnswer& claimed, const DeviceAnswer& answer, const Device& device,
                        const Machine& machine)
{
    if (claimed.stack() != deviceMapperStack.name) {
        return nullptr;
    }
    const Device& whole = machine.wholeOf(device);
    if (&whole != &device && device.partition != 0) {
        return quirkOfPartition(answer, claimed.path(), whole, device.partition);
    }
    return answer.isPartition && device.partition == 0 ? quirk::partitionLikeName : nullptr;
}

}  // namespace

void MarkText::add(std::string_view mark)
{
    if ((',' + text + ',').find(',' + std::string(mark) + ',') == std::string::npos) {
        text.append(text.empty() ? "" : ",").append(mark);
    }
}

void MarkText::add(Marks marks)
{
    for (const auto& [mark, word] : readingMarks) {
        if ((marks & mark) != 0) {
            add(std::string_view(word));
        }
    }
}

std::string marksOf(const kivclaim::ClaimAnswer& claimed, const DeviceAnswer& answer, const Device& device,
                    const Machine& machine)
{
    MarkText text;
    const char* const ofClaim = quirkOfClaim(claimed, device, machine);
    const char* const ofName = quirkOfName(claimed, answer, device, machine);
    for (const char* const found : {ofClaim, ofName}) {
        if (found != nullptr) {
            text.add(std::string_view(found));
        }
    }
    if (answer.doubt.isThere()) {
        text.add(std::string_view(unsure));
    }
    text.add(device.marks);
    return text.take();
}

}  // namespace kivclaim::tools
