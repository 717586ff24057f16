#include "tools/kernel_account.h"

#include "tools/exit_status.h"

#include <sys/stat.h>

#include <cerrno>

using kivclaim::machine::Device;
using kivclaim::machine::Machine;
using kivclaim::machine::ReadError;
using kivclaim::machine::Root;

namespace kivclaim::tools {

const Machine& KernelAccount::machine()
{
    try {
        return played != nullptr ? played->devices() : readings.empty() ? readAgain() : readings.back();
    } catch (const ReadError&) {
        throw CommandError("cannot read the list of block devices; is sysfs mounted on /sys?");
    }
}

KernelTruth KernelAccount::at(const std::string& path)
{
    if (played != nullptr) {
        return {played->devices(), path};
    }
    try {
        const KernelTruth truth(readings.empty() ? readAgain() : readings.back(), path);
        return isOutdated(path) ? KernelTruth(readAgain(), path) : truth;
    } catch (const ReadError&) {
        struct stat file {};
        const bool isOther = stat(path.c_str(), &file) == 0 && !S_ISBLK(file.st_mode);
        return isOther ? KernelTruth::ofOtherFile() : KernelTruth();
    }
}

bool KernelAccount::isNothingAt(const std::string& path)
{
    if (played != nullptr) {
        return !played->devices().isAnythingAt(path);
    }
    struct stat file {};
    return stat(path.c_str(), &file) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

void KernelAccount::forgetEarlier()
{
    while (readings.size() > 1) {
        readings.pop_front();
    }
}

const Machine& KernelAccount::readAgain()
{
    return readings.emplace_back(Machine::read(Root::live(), KernelTruth::facts));
}

bool KernelAccount::isOutdated(const std::string& path) const
{
    const Machine& latest = readings.back();
    const Device* const device = latest.byPath(path);
    return device != nullptr ? !latest.isStillThere(*device) : latest.numberAt(path).has_value();
}

}  // namespace kivclaim::tools
