// Device-mapper multipath devices: /dev/mapper/mpatha is a whole device, its first partition is
// /dev/mapper/mpatha-part1, or _part1, or p1, as the release family has it. LVM logical volumes live there too.
#include "modules/kiv_linux_device_mapper_claim.h"

#include "claim/kiv_queried_volumes.h"
#include "claim/kiv_trace.h"
#include "framework/cfiexecpipe.h"
#include "framework/cfistringtool.h"
#include "modules/kiv_path_text.h"
#include "modules/kiv_volume_reading.h"

#include <cxxabi.h>
#include <pthread.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string_view>

#include <fcntl.h>

using ztfi_pdk_4_4::CFiExecPipePosix;
using ztfi_pdk_4_4::CFiStringTool;
using ztfi_pdk_4_4::CFiTraceLogFunction;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NONE;

namespace {

using namespace kivclaim;

// Written out instead of __FILE__, so that records show the same name wherever and however the source is compiled.
constexpr char sourceFile[] = "modules/kiv_linux_device_mapper_claim.cpp";

// The line numbers in scope records. They never change: readers of traces recognise the operations by them.
constexpr int lineOfGetDeviceClaimStrings = 51;
constexpr int lineOfClaim = 60;
constexpr int lineOfIsPartition = 78;
constexpr int lineOfRemovePartitionSuffix = 152;
constexpr int lineOfAppendPartitionSuffix = 242;

constexpr std::string_view claimString = "/dev/mapper/";
// Deliberate: without the trailing slash, unlike the claim string. Pinned by
// DeviceMapper.TheNameRuleDoesNotAskForASlashAfterTheDirectory.
constexpr std::string_view mapperDirectory = "/dev/mapper";

constexpr std::size_t suffixCapacity = 32;
// The length of -partN and _partN with a one-digit N.
constexpr std::size_t suffixLength = 6;

constexpr int family11 = 11;
constexpr int family12 = 12;
constexpr int unknownFamily = -1;

constexpr char listCommand[] = "/sbin/lvdisplay";
constexpr std::size_t commandCapacity = 1024;
constexpr unsigned long commandTimeoutSeconds = 600;
constexpr char volumeLabel[] = "LV Name";
constexpr char groupLabel[] = "VG Name";

constexpr int listBuilt = 0;
constexpr int listFailed = 6;
constexpr int listThrew = 1;

// The kind of exception that an operation caught.
enum class Caught { nothing, outOfRange, anything };

// Only whether the node can be opened counts, not what it is. A path with a NUL names no node: open() would see the
// part before the NUL, which is another path.
int openedNode(const std::string& path)
{
    return path.find('\0') != std::string::npos ? -1 : open(path.c_str(), O_RDONLY);
}

bool canBeOpened(const std::string& path)
{
    const int descriptor = openedNode(path);
    if (descriptor < 0) {
        return false;
    }
    close(descriptor);
    return true;
}

std::string withoutLast(const std::string& path, std::size_t count)
{
    return path.substr(0, path.size() - std::min(count, path.size()));
}

// The parent of a partition path: of the path without its last character and the path without its last two, the first
// that can be opened. It stays open until `close`, because the records about it come before.
class ProbedParent {
public:
    explicit ProbedParent(const std::string& path)
    {
        for (std::size_t cut = 1; cut <= 2 && descriptor < 0; ++cut) {
            candidate = withoutLast(path, cut);
            descriptor = openedNode(candidate);
        }
    }
    ProbedParent(const ProbedParent&) = delete;
    ProbedParent& operator=(const ProbedParent&) = delete;
    // Without cancellation: close() is a cancellation point, and no exception may leave a destructor.
    ~ProbedParent()
    {
        int cancelState = PTHREAD_CANCEL_ENABLE;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
        close();
        pthread_setcancelstate(cancelState, nullptr);
    }

    bool exists() const { return descriptor >= 0; }
    const std::string& path() const { return candidate; }
    void close()
    {
        if (exists()) {
            ::close(descriptor);
        }
        descriptor = -1;
    }

private:
    std::string candidate;
    int descriptor = -1;
};

bool endsInPartAndOneDigit(const std::string& path)
{
    constexpr std::size_t lengthOfPartAndDigit = 5;
    return contains(path, mapperDirectory) && isDigit(path.back()) &&
           path.rfind("part") == path.size() - lengthOfPartAndDigit;
}

// Deliberate: only the last digit, whatever precedes it. Pinned by
// DeviceMapper.TwoDigitPartitionsComeBackWithTheirLastDigit.
unsigned int lastDigitOf(const std::string& path)
{
    return static_cast<unsigned int>(path.back() - '0');
}

template <std::size_t Capacity>
std::string formattedNumber(const char (&prefix)[Capacity], unsigned int number)
{
    char suffix[suffixCapacity];
    std::snprintf(suffix, sizeof suffix, "%s%d", prefix, static_cast<int>(number));
    return suffix;
}

// For an unknown release: after a digit, "p" and the number; otherwise the bare number or "p" and the number, the first
// that names a device; the device itself when neither does.
std::string partitionPathOfUnknownRelease(const std::string& device, unsigned int partition)
{
    if (isDigit(device.back())) {
        return device + formattedNumber("p", partition);
    }
    const std::string candidates[] = {device + formattedNumber("", partition),
                                      device + formattedNumber("p", partition)};
    for (const std::string& candidate : candidates) {
        if (canBeOpened(candidate)) {
            return candidate;
        }
    }
    return device;
}

// The first three numbers of a kernel release such as 5.3.18-150300.59-default.
struct KernelRelease {
    long major;
    long minor;
    long third;
    bool hasThird;
};

long numberIn(const char* token)
{
    return token != nullptr ? std::strtol(token, nullptr, 10) : 0;
}

KernelRelease runningKernel()
{
    utsname system{};
    uname(&system);
    char* rest = nullptr;
    // strtok_r instead of strtok: the host may itself be using strtok at this moment.
    const char* const major = strtok_r(system.release, ".-", &rest);
    const char* const minor = major != nullptr ? strtok_r(nullptr, ".-", &rest) : nullptr;
    const char* const third = minor != nullptr ? strtok_r(nullptr, ".-", &rest) : nullptr;
    return {numberIn(major), numberIn(minor), numberIn(third), third != nullptr};
}

int familyOf(const KernelRelease& release)
{
    if (release.hasThird && release.major == 2 && release.minor == 6 && release.third > 26) {
        return family11;
    }
    if (release.major == 3 && release.minor == 0) {
        return family11;
    }
    if ((release.major == 3 && release.minor > 11) || release.major >= 4) {
        return family12;
    }
    return unknownFamily;
}

}  // namespace

CKivDeviceMapperClaim::~CKivDeviceMapperClaim() = default;

std::vector<std::string> CKivDeviceMapperClaim::getDeviceClaimStrings()
{
    std::vector<std::string> strings;
    const CFiTraceLogFunction scope(traceLog, "getDeviceClaimStrings", lineOfGetDeviceClaimStrings, sourceFile);
    strings.emplace_back(claimString);
    return strings;
}

// Deliberate: a list that cannot be built leaves every path claimed, logical volumes included. Pinned by
// DeviceMapper.ClaimsEveryPathWhenTheListCannotBeBuilt.
ZTFI_DEVICE_CLAIM_LEVEL CKivDeviceMapperClaim::claim(const std::string& path)
{
    const CFiTraceLogFunction scope(traceLog, "claim", lineOfClaim, sourceFile);
    if (contains(path, claimString) && isLinuxLogicalVolume(path) == 0) {
        KIV_TRACE(INFORMATION, "INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY");
        return ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY;
    }
    KIV_TRACE(INFORMATION, "INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_NONE");
    return ZTFI_DEVICE_CLAIM_LEVEL_NONE;
}

// Deliberate: the probe applies to any path, not only to those under /dev/mapper. Pinned by
// DeviceMapper.TheProbeAppliesToAnyPath.
int CKivDeviceMapperClaim::isPartition(const std::string& path)
{
    constexpr char name[] = "CKivDeviceMapperClaim::isPartition";
    const CFiTraceLogFunction scope(traceLog, "isPartition", lineOfIsPartition, sourceFile);
    Caught caught = Caught::nothing;
    try {
        if (endsInPartAndOneDigit(path)) {
            KIV_TRACE(INFORMATION, "INFO:  CKivDeviceMapperClaim::isPartition: Device path:[%s] is a partition",
                      path.c_str());
            return 1;
        }
        if (path.empty()) {
            KIV_TRACE(DETAIL, "%s: Partition name is empty: [%s]", name, path.c_str());
            KIV_TRACE(DETAIL, "%s: %s is not a partition", name, path.c_str());
            return 0;
        }
        if (isDigit(path.back())) {
            ProbedParent parent(path);
            if (parent.exists()) {
                KIV_TRACE(DETAIL, "%s: [%s] is a partition and [%s] is the possible parent device", name, path.c_str(),
                          parent.path().c_str());
                parent.close();
                return 1;
            }
        }
        KIV_TRACE(DETAIL, "%s: [%s] is not a partition", name, path.c_str());
    } catch (const std::out_of_range&) {
        caught = Caught::outOfRange;
    } catch (const abi::__forced_unwind&) {
        throw;  // thread cancellation must propagate
    } catch (...) {
        caught = Caught::anything;
    }
    if (caught == Caught::outOfRange) {
        KIV_TRACE_FAILURE(ERROR, "%s: Out of Range exception thrown in string function", name);
    } else if (caught == Caught::anything) {
        KIV_TRACE_FAILURE(WARNING, "%s: Unknown exception caught", name);
    }
    return 0;
}

std::string CKivDeviceMapperClaim::appendPartitionSuffix(const std::string& device, unsigned int partition)
{
    constexpr char name[] = "INFO: CKivDeviceMapperClaim::appendPartitionSuffix";
    std::string result;
    const CFiTraceLogFunction scope(traceLog, "appendPartitionSuffix", lineOfAppendPartitionSuffix, sourceFile);
    try {
        result = device;
        const int number = static_cast<int>(partition);
        KIV_TRACE(INFORMATION, "%s: device: [%s], partition number :[%d]", name, device.c_str(), number);
        if (device.empty()) {
            KIV_TRACE(INFORMATION, "%s: Partition name is empty [%s]", name, device.c_str());
            return result;
        }
        // Deliberate: the release is read a second time, with its record. Pinned by
        // DeviceMapper.AppendAsksTwiceForTheReleaseUnlessItIs11.
        if (getSuSEVersion() == family11) {
            result += formattedNumber("_part", partition);
        } else if (getSuSEVersion() == family12) {
            result += formattedNumber("-part", partition);
        } else {
            result = partitionPathOfUnknownRelease(device, partition);
        }
        KIV_TRACE(INFORMATION, "%s: device: [%s], partition: [%s], partition number: [%d]", name, device.c_str(),
                  result.c_str(), number);
        return result;
    } catch (const abi::__forced_unwind&) {
        throw;  // thread cancellation must propagate
    } catch (...) {
        // Handled after the block: see KIV_TRACE_FAILURE.
    }
    KIV_TRACE_FAILURE(ERROR, "%s: Unknown exception caught", name);
    result = device;
    return result;
}

// Deliberate: six characters are cut whatever the number of digits, and some early returns leave `partition` as it
// was. Pinned by DeviceMapper.TwoDigitPartitionsComeBackWithTheirLastDigit.
std::string CKivDeviceMapperClaim::removePartitionSuffix(const std::string& device, unsigned int& partition)
{
    constexpr char name[] = "CKivDeviceMapperClaim::removePartitionSuffix";
    std::string result;
    const CFiTraceLogFunction scope(traceLog, "removePartitionSuffix", lineOfRemovePartitionSuffix, sourceFile);
    Caught caught = Caught::nothing;
    const char* message = nullptr;
    std::exception_ptr keepsTheMessage;
    try {
        result = device;
        if (!contains(device, claimString)) {
            KIV_TRACE(ERROR, "%s: [%s] is a Wrong partition name", name, device.c_str());
            return result;
        }
        KIV_TRACE(INFORMATION, "%s: device: [%s], partition: [%s]", name, device.c_str(), device.c_str());
        if (isPartition(device) == 0) {
            partition = 0;
        } else if (getSuSEVersion() > 0) {
            result = withoutLast(device, suffixLength);
            partition = lastDigitOf(device);
            KIV_TRACE(DETAIL, "%s: Partition no is [%d]", name, static_cast<int>(partition));
        } else {
            result = wholeDeviceOfUnknownRelease(device, partition);
        }
    } catch (const std::out_of_range& exception) {
        caught = Caught::outOfRange;
        message = exception.what();
        keepsTheMessage = std::current_exception();
    } catch (const abi::__forced_unwind&) {
        throw;  // thread cancellation must propagate
    } catch (...) {
        caught = Caught::anything;
    }
    if (caught == Caught::outOfRange) {
        KIV_TRACE_FAILURE(ERROR, "%s: Out of Range exception thrown : %s", name, message);
    } else if (caught == Caught::anything) {
        KIV_TRACE_FAILURE(ERROR, "%s: Unknown exception caught", name);
    }
    if (result.empty()) {
        result = device;  // if the working copy could not be made
    }
    return result;
}

std::string CKivDeviceMapperClaim::wholeDeviceOfUnknownRelease(const std::string& path, unsigned int& partition)
{
    constexpr char name[] = "CKivDeviceMapperClaim::removePartitionSuffix";
    if (path.size() <= 2) {
        return path;
    }
    if (!isDigit(path.back())) {
        KIV_TRACE(DETAIL, "%s: [%s] is not a partition", name, path.c_str());
        return path;
    }
    ProbedParent parent(path);
    if (!parent.exists()) {
        KIV_TRACE(DETAIL, "%s: [%s] is not a partition", name, path.c_str());
        partition = 0;
        return path;
    }
    KIV_TRACE(DETAIL, "%s: [%s] is the parent device", name, parent.path().c_str());
    parent.close();
    partition = lastDigitOf(path);
    KIV_TRACE(DETAIL, "%s: Partition no is [%d]", name, static_cast<int>(partition));
    return parent.path();
}

void CKivDeviceMapperClaim::clearLvmDeviceNameList()
{
    logicalVolumePaths.clear();
}

int CKivDeviceMapperClaim::getSuSEVersion()
{
    const int family = familyOf(runningKernel());
    if (family == family11) {
        KIV_TRACE(INFORMATION, "INFO: getSuSEVersion: SuSE version 11");
    } else if (family == family12) {
        KIV_TRACE(INFORMATION, "INFO: getSuSEVersion: SuSE version 12 or more");
    }
    return family;
}

// Deliberate: an empty list counts as not built, so on a machine without logical volumes it is built again for every
// path. Pinned by LvList.AnEmptyListIsBuiltAgainForEveryQuestion.
int CKivDeviceMapperClaim::isLinuxLogicalVolume(const std::string& path)
{
    constexpr char name[] = "CKivDeviceMapperClaim::isLinuxLogicalVolume";
    KIV_TRACE(INFORMATION, "%s: Checking for device:[%s]", name, path.c_str());
    // While a query asks, its list is used, and the module's own stays as it is.
    QueriedVolumes* const queried = QueriedVolumes::inForce();
    const bool hasList = queried != nullptr ? queried->areRead(*this, traceLog)
                                            : !logicalVolumePaths.empty() || createLvmDeviceNamesList() == listBuilt;
    if (!hasList) {
        KIV_TRACE(DETAIL, "%s: creating LVM device list failed", name);
        return 0;
    }
    if (queried != nullptr ? queried->hold(path) : logicalVolumePaths.count(path) != 0) {
        KIV_TRACE(DETAIL, "%s: The device path:[%s] is a logical volume", name, path.c_str());
        return 1;
    }
    KIV_TRACE(DETAIL, "%s: The device path:[%s] is not logical volume.", name, path.c_str());
    return 0;
}

int CKivDeviceMapperClaim::createLvmDeviceNamesList()
{
    return buildList(commandTimeoutSeconds, nullptr);
}

int CKivDeviceMapperClaim::buildList(unsigned long timeoutSeconds, VolumeReading* reading)
{
    constexpr char name[] = "CKivDeviceMapperClaim::createLvmDeviceNamesList";
    try {
        CFiExecPipePosix runner(1);
        runner.registerTraceLog(traceLog);
        std::vector<std::string> output;
        char command[commandCapacity] = {};
        std::snprintf(command, sizeof command, "%s", listCommand);
        KIV_TRACE(DETAIL, "%s: Command:[%s]", name, command);
        if (runner.Exec(command, output, "", timeoutSeconds, "", "", "") != 0) {
            if (reading != nullptr) {
                reading->noteFailure(runner.getLastFailure(), output);
            }
            return reportFailedListing(static_cast<long>(runner.getLastFailure().waitStatus), output);
        }
        return addLogicalVolumes(output);
    } catch (const abi::__forced_unwind&) {
        throw;  // thread cancellation must propagate
    } catch (...) {
        // No record in here: see KIV_TRACE_FAILURE.
        if (reading != nullptr) {
            reading->noteException();
        }
    }
    KIV_TRACE_FAILURE(WARNING, "%s: Unknown exception caught", name);
    return listThrew;
}

int CKivDeviceMapperClaim::reportFailedListing(long waitStatus, const std::vector<std::string>& output)
{
    constexpr char name[] = "CKivDeviceMapperClaim::createLvmDeviceNamesList";
    const long status = getExecPipeWaitPidStatus(waitStatus);
    KIV_TRACE(ERROR, "%s: lvdisplay command execution failed. Status:[%ld]", name, status);
    for (const std::string& line : output) {
        KIV_TRACE(DETAIL, "%s: Output:[%s]", name, line.c_str());
    }
    return listFailed;
}

int CKivDeviceMapperClaim::addLogicalVolumes(const std::vector<std::string>& output)
{
    constexpr char name[] = "CKivDeviceMapperClaim::createLvmDeviceNamesList";
    constexpr std::size_t labelLength = sizeof groupLabel - 1;
    unsigned long next = 0;
    for (;;) {
        unsigned long index = next;
        if (CFiStringTool::find(output, volumeLabel, index, false) == std::string::npos) {
            return listBuilt;
        }
        const unsigned long volumeLine = index;
        std::string volume;
        if (!logicalVolumeName(output.at(index), volume)) {
            return listFailed;
        }
        // Deliberate: the search result is used even when nothing was found; only reading outside the lines or a line
        // throws. Pinned by LvList.WithoutAGroupLineTheGroupComesFromTheVolumesLine.
        const std::size_t label = CFiStringTool::find(output, groupLabel, index, false);
        const std::string group = CFiStringTool::trim(output.at(index).substr(label + labelLength), " \n\t\r");
        // Deliberate: no character is escaped or doubled. Pinned by LvList.DashesInNamesAreNotDoubled.
        std::string path(claimString);
        path.append(group).append("-").append(volume);
        logicalVolumePaths.insert(path);
        KIV_TRACE(DETAIL, "%s: Output:[%s]", name, path.c_str());
        // Guards against a host's find() that moves the index backwards.
        next = std::max({next, volumeLine, index}) + 1;
    }
}

// Sets `name` to the name in an "LV Name" line: after the last '/' of a path, otherwise after the last blank. False
// when the line has neither.
bool CKivDeviceMapperClaim::logicalVolumeName(const std::string& line, std::string& name)
{
    constexpr char operation[] = "CKivDeviceMapperClaim::createLvmDeviceNamesList";
    std::size_t separator = line.rfind('/');
    if (separator == std::string::npos) {
        KIV_TRACE(INFORMATION, "%s: / not found in LV NAME. Now searching for space", operation);
        separator = line.rfind(' ');
    }
    if (separator == std::string::npos) {
        KIV_TRACE(ERROR, "%s: / and space both not found in lvdisplay LV NAME", operation);
        return false;
    }
    name = CFiStringTool::trim(line.substr(separator + 1), " \n\r\t");
    return true;
}

long CKivDeviceMapperClaim::getExecPipeWaitPidStatus(long status)
{
    constexpr char name[] = "CKivDeviceMapperClaim::getExecPipeWaitPidStatus";
    const auto low = static_cast<std::uint32_t>(status);
    const long signal = low & 0x7FU;
    const long code = (low >> 8U) & 0xFFU;
    if (signal == 0) {
        KIV_TRACE(WARNING, "%s: exited, status= [%ld]", name, code);
        return code;
    }
    if (signal != 0x7F) {
        KIV_TRACE(WARNING, "%s: killed by signal [%ld]", name, signal);
        return signal;
    }
    if ((low & 0xFFU) == 0x7FU) {
        KIV_TRACE(WARNING, "%s: stopped by signal:[%ld]", name, code);
        return code;
    }
    if (low == 0xFFFFU) {
        KIV_TRACE(WARNING, "%s: continued:[%ld]", name, status);
    }
    return status;
}
