// EMC PowerPath pseudo devices: /dev/emcpowera is a whole device, /dev/emcpowera1 its first partition.
#include "modules/kiv_powerpath_claim.h"

#include "claim/kiv_trace.h"
#include "modules/kiv_path_text.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

using ztfi_pdk_4_4::CFiTraceLogFunction;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NONE;

namespace {

using namespace kivclaim;

// Written out instead of __FILE__, so that records show the same name wherever and however the source is compiled. The
// lines beside it are __LINE__ and may change with any edit; see claim/kiv_trace.h.
constexpr char sourceFile[] = "modules/kiv_powerpath_claim.cpp";

constexpr std::string_view claimString = "/dev/emcpower";
constexpr std::string_view nameMarker = "emcpower";
constexpr std::size_t numberCapacity = 32;

std::size_t countTrailingDigits(const std::string& path)
{
    std::size_t count = 0;
    while (isDigit(path.at(path.size() - 1 - count))) {
        ++count;
    }
    return count;
}

}  // namespace

CKivPowerPathClaim::~CKivPowerPathClaim() = default;

std::vector<std::string> CKivPowerPathClaim::getDeviceClaimStrings()
{
    std::vector<std::string> strings;
    const CFiTraceLogFunction scope(traceLog, "getDeviceClaimStrings", __LINE__, sourceFile);
    strings.emplace_back(claimString);
    return strings;
}

// Deliberate: the record names the level CLAIM_SECONDARY, and a path that only contains the string is claimed too.
// Pinned by PowerPath.ClaimsAPathThatContainsItsStringAnywhere.
ZTFI_DEVICE_CLAIM_LEVEL CKivPowerPathClaim::claim(const std::string& path)
{
    const CFiTraceLogFunction scope(traceLog, "claim", __LINE__, sourceFile);
    for (const std::string& text : getDeviceClaimStrings()) {
        if (contains(path, text)) {
            KIV_TRACE(INFORMATION, "INFO: CKivPowerPathClaim::claim - returning CLAIM_SECONDARY");
            return ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY;
        }
    }
    return ZTFI_DEVICE_CLAIM_LEVEL_NONE;
}

int CKivPowerPathClaim::isPartition(const std::string& path)
{
    const CFiTraceLogFunction scope(traceLog, "isPartition", __LINE__, sourceFile);
    return contains(path, claimString) && isDigit(path.back()) ? 1 : 0;
}

// Deliberate: the number is written signed, so one above 2147483647 becomes negative. Pinned by
// PowerPath.AppendsANumberAboveTheSignedRangeAsNegative.
std::string CKivPowerPathClaim::appendPartitionSuffix(const std::string& device, unsigned int partition)
{
    std::string result;
    const CFiTraceLogFunction scope(traceLog, "appendPartitionSuffix", __LINE__, sourceFile);
    result = device;
    const int number = static_cast<int>(partition);
    char digits[numberCapacity];
    std::snprintf(digits, sizeof digits, "%d", number);
    result += digits;
    KIV_TRACE(INFORMATION, "INFO: CKivPowerPathClaim::appendPartitionSuffix device [%s] partition[%s] partnum[%d]",
              device.c_str(), result.c_str(), number);
    return result;
}

// Deliberate: looks for "emcpower" only, so a bare name is split although it is not claimed. Pinned by
// PowerPath.TakesABareNameApartThoughItIsNotClaimed.
std::string CKivPowerPathClaim::removePartitionSuffix(const std::string& device, unsigned int& partition)
{
    std::string result;
    const CFiTraceLogFunction scope(traceLog, "removePartitionSuffix", __LINE__, sourceFile);
    result = device;
    if (contains(device, nameMarker)) {
        const std::size_t digits = countTrailingDigits(device);
        const std::string number = device.substr(device.size() - digits);
        // No digits are 0.
        partition = static_cast<unsigned int>(std::strtol(number.c_str(), nullptr, 10));
        result.resize(device.size() - digits);
    }
    KIV_TRACE(INFORMATION, "INFO: CKivPowerPathClaim::removePartitionSuffix device [%s] partition[%s] partnum[%d]",
              result.c_str(), device.c_str(), static_cast<int>(partition));
    return result;
}
