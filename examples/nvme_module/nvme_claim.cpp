// A claim module for NVMe disks: /dev/nvme0n1 is namespace 1 of controller 0, /dev/nvme0n1p2 its second partition.
#include "claim/kiv_claim_module_entry.h"
#include "claim/kiv_device_claim_base.h"

#include <charconv>
#include <string_view>

using ztfi_pdk_4_4::CFiTraceLogFunction;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NATIVE;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NONE;
using ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_INFORMATION;

namespace {

constexpr char sourceFile[] = "nvme_module/nvme_claim.cpp";
constexpr std::string_view claimString = "/dev/nvme";

// The disk and partition that a path names. `whole` is empty if it names none.
struct NvmeDisk {
    std::string_view whole;
    unsigned int partition = 0;  // 0: the whole disk
};

// Removes `text` from the beginning of `rest`.
bool take(std::string_view& rest, std::string_view text)
{
    if (rest.compare(0, text.size(), text) != 0) {
        return false;
    }
    rest.remove_prefix(text.size());
    return true;
}

// Removes a number in the kernel's form, without leading zeros, from the beginning of `rest`.
bool takeNumber(std::string_view& rest, unsigned int& number)
{
    const std::from_chars_result result = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    const auto length = static_cast<std::size_t>(result.ptr - rest.data());
    if (result.ec != std::errc() || (rest.front() == '0' && length > 1)) {
        return false;
    }
    rest.remove_prefix(length);
    return true;
}

// `path` must outlive the result.
NvmeDisk diskAt(std::string_view path)
{
    std::string_view rest = path;
    unsigned int number = 0;  // of controller and namespace: any number is accepted
    if (!take(rest, claimString) || !takeNumber(rest, number) || !take(rest, "n") || !takeNumber(rest, number)) {
        return {};
    }
    NvmeDisk disk{path.substr(0, path.size() - rest.size())};
    const bool isPartition = take(rest, "p") && takeNumber(rest, disk.partition) && disk.partition != 0;
    return rest.empty() && (isPartition || disk.whole == path) ? disk : NvmeDisk{};
}

}  // namespace

class CNvmeClaim : public CKivDeviceClaimBase {
public:
    std::vector<std::string> getDeviceClaimStrings() override
    {
        std::vector<std::string> strings;
        const CFiTraceLogFunction scope(traceLog, "getDeviceClaimStrings", __LINE__, sourceFile);
        strings.emplace_back(claimString);
        return strings;
    }

    ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) override
    {
        const CFiTraceLogFunction scope(traceLog, "claim", __LINE__, sourceFile);
        if (diskAt(path).whole.empty()) {
            return ZTFI_DEVICE_CLAIM_LEVEL_NONE;
        }
        if (traceLog.get() != nullptr) {
            traceLog->trace(ZTFI_TRACE_LEVEL_INFORMATION, "INFO: CNvmeClaim::claim - [%s] is an NVMe disk",
                            path.c_str());
        }
        return ZTFI_DEVICE_CLAIM_LEVEL_NATIVE;
    }

    int isPartition(const std::string& path) override
    {
        const CFiTraceLogFunction scope(traceLog, "isPartition", __LINE__, sourceFile);
        return diskAt(path).partition != 0 ? 1 : 0;
    }

    std::string appendPartitionSuffix(const std::string& device, unsigned int partition) override
    {
        std::string result = device;
        const CFiTraceLogFunction scope(traceLog, "appendPartitionSuffix", __LINE__, sourceFile);
        result += "p" + std::to_string(partition);
        return result;
    }

    std::string removePartitionSuffix(const std::string& device, unsigned int& partition) override
    {
        std::string result = device;
        const CFiTraceLogFunction scope(traceLog, "removePartitionSuffix", __LINE__, sourceFile);
        const NvmeDisk disk = diskAt(device);
        partition = disk.partition;
        if (partition != 0) {
            result = disk.whole;
        }
        return result;
    }
};

KIV_CLAIM_MODULE_ENTRY(CNvmeClaim)
