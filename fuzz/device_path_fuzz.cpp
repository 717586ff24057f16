// Any path may be asked about; a partition's path that a module made is taken apart into what it was made of.
#include "claim/kiv_claim_manager.h"
#include "fuzz/scripted_runner.h"
#include "modules/kiv_nativepath_claim.h"
#include "modules/kiv_powerpath_claim.h"

#include <cctype>
#include <string>

namespace {

constexpr std::size_t longestNativePath = 1023;

void checkRoundTrip(CKivDeviceClaimBase& module, const std::string& whole, unsigned int number)
{
    const std::string path = module.appendPartitionSuffix(whole, number);
    if (path.size() > longestNativePath - 1 || number > 2147483647U) {
        return;
    }
    unsigned int found = 0;
    fuzz::check(module.isPartition(path) == 1, "a partition's path is one");
    fuzz::check(module.removePartitionSuffix(path, found) == whole, "the whole device comes back");
    fuzz::check(found == number, "the number comes back");
}

void askEverything(CKivClaimManager& manager, const std::string& path, unsigned int number)
{
    const unsigned int level = manager.claim(path);
    fuzz::check(level == 0 || level == 2 || level == 16, "a level is one of the three");
    fuzz::check(level != 0 || manager.isPartition(path) == 0, "an unclaimed path is no partition");
    fuzz::check((level == 0) == manager.appendPartitionSuffix(path, number).empty(), "only unclaimed paths have none");
    fuzz::check((level == 0) == manager.removePartitionSuffix(path, number).empty(), "only unclaimed paths have none");
}

// The first four bytes as a number, the lowest one first: an input means the same on every machine.
unsigned int numberIn(const unsigned char* data)
{
    return data[0] | static_cast<unsigned int>(data[1]) << 8U | static_cast<unsigned int>(data[2]) << 16U |
           static_cast<unsigned int>(data[3]) << 24U;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    constexpr std::size_t numberSize = 4;
    if (size < numberSize) {
        return 0;
    }
    const unsigned int number = numberIn(data);
    const std::string name(reinterpret_cast<const char*>(data) + numberSize, size - numberSize);
    fuzz::commandsPrint({}, 0);
    CKivClaimManager manager;
    for (const char* const prefix : {"", "/dev/mapper/", "/dev/emcpower", "/dev/sd"}) {
        askEverything(manager, prefix + name, number);
    }
    // C texts end at a zero byte, and a trailing digit would become part of the number.
    if (name.empty() || name.find('\0') != std::string::npos ||
        std::isdigit(static_cast<unsigned char>(name.back())) != 0) {
        return 0;
    }
    CKivPowerPathClaim powerPath;
    CNativePathClaim native;
    checkRoundTrip(powerPath, "/dev/emcpower" + name, number);
    checkRoundTrip(native, "/dev/sd" + name, number);
    return 0;
}
