// The short names of docs/quirks.md for what concerns single devices, by which the command marks and explains them.
#ifndef KIVCLAIM_TOOLS_QUIRK_NAMES_H
#define KIVCLAIM_TOOLS_QUIRK_NAMES_H

namespace kivclaim::tools::quirk {

constexpr char prefixAnywhere[] = "prefix-anywhere";
constexpr char nameDecides[] = "name-decides";
constexpr char anyMapping[] = "any-mapping";
constexpr char failedListing[] = "failed-listing";
constexpr char dashedVolume[] = "dashed-volume";
constexpr char unlistedVolume[] = "unlisted-volume";
constexpr char staleList[] = "stale-list";
constexpr char pathOfAMap[] = "path-of-a-map";
constexpr char lastDigit[] = "last-digit";
constexpr char sixCharacters[] = "six-characters";
constexpr char missingNeighbour[] = "missing-neighbour";
constexpr char partitionLikeName[] = "partition-like-name";
constexpr char releaseDecides[] = "release-decides";
constexpr char unknownRelease[] = "unknown-release";

// Those that explain a difference.
constexpr const char* all[] = {prefixAnywhere,   nameDecides,       anyMapping,     failedListing, dashedVolume,
                               unlistedVolume,   staleList,         pathOfAMap,     lastDigit,     sixCharacters,
                               missingNeighbour, partitionLikeName, releaseDecides, unknownRelease};

}  // namespace kivclaim::tools::quirk

#endif
