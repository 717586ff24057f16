// Native SCSI disks: /dev/sdc is a whole disk, /dev/sdc2 its second partition. The volume manager's multipathing layer
// combines all OS paths to a disk into one node; its tools tell which node a disk belongs to and which path is in use.
#include "modules/kiv_nativepath_claim.h"

#include "claim/kiv_trace.h"
#include "framework/cfiexecpipe.h"
#include "framework/cfistringtool.h"
#include "modules/kiv_path_text.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <string_view>

using ztfi_pdk_4_4::CFiExecPipePosix;
using ztfi_pdk_4_4::CFiStringTool;
using ztfi_pdk_4_4::CFiTraceLogFunction;
using ztfi_pdk_4_4::EFiExecPipe;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NATIVE;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NONE;

namespace {

using namespace kivclaim;

// Written out instead of __FILE__, so that records show the same name wherever and however the source is compiled. The
// lines beside it are __LINE__ and may change with any edit; see claim/kiv_trace.h.
constexpr char sourceFile[] = "modules/kiv_nativepath_claim.cpp";

constexpr std::string_view claimString = "/dev/sd";
constexpr std::string_view digits = "0123456789";
constexpr std::size_t shortestPartitionPath = 3;
constexpr std::size_t pathCapacity = 1024;

// The parts of command lines, with their exact blanks. Several blanks count as one to the runner.
constexpr char toolDirectory[] = "/usr/sbin/";
constexpr char multipathingTool[] = "ztkivadm  ";
constexpr char diskTool[] = "ztdisk  ";
constexpr char nodeQuery[] = " getkivnode ";
constexpr char nodeQueryArgument[] = " nodename=";
constexpr char pathQuery[] = " getsubpaths ";
constexpr char pathQueryArgument[] = " kivnodename=";
constexpr char rescan[] = " scandisks ";
constexpr char rescanArgument[] = " device=";
constexpr char removal[] = " rm ";
constexpr char diskSeparator[] = ",";

constexpr char blanksAroundPath[] = " \n\t\r";
constexpr char columnSeparators[] = " \n\t";

// A table: a header line with this title in it, a rule, the rows.
constexpr char headerTitle[] = "NAME";
constexpr std::size_t fewestLines = 2;
constexpr std::size_t firstRow = 2;
constexpr std::size_t nameColumn = 0;
constexpr std::size_t stateColumn = 1;
constexpr std::size_t typeColumn = 2;

constexpr std::string_view activeState = "ENABLED(A)";
constexpr std::string_view enabledState = "ENABLED";
constexpr std::string_view primaryType = "PRIMARY";

constexpr int attempts = 4;
constexpr unsigned int waitedPauseSeconds = 5;
constexpr unsigned int refreshedPauseSeconds = 10;

constexpr unsigned long commandTimeoutSeconds = 600;

std::string joined(const std::vector<std::string>& texts, const char* separator)
{
    std::string all;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        all += i == 0 ? "" : separator;
        all += texts[i];
    }
    return all;
}

// Deliberate: nothing separates the lines of an output. Pinned by
// VolumeManagerSupport.OutputLinesRunTogetherInTheMessages.
std::string joined(const std::vector<std::string>& lines)
{
    return joined(lines, "");
}

// One column of a table's row; empty when the row is shorter.
std::string column(const std::vector<std::string>& columns, std::size_t index)
{
    return index < columns.size() ? columns[index] : std::string();
}

// Converts to the framework's string type. That type does not report a failed allocation, so the length is checked.
ACE_String_Base<char> frameworkText(std::string_view text)
{
    ACE_String_Base<char> converted = CFiStringTool::str2tstr(std::string(text));
    if (converted.length() != text.size()) {
        throw std::bad_alloc();
    }
    return converted;
}

// Pauses for the whole time even if signals arrive. sleep() rounds the remainder when a signal interrupts it, so
// frequent signals would shorten the pause: at the end, the clock tells what is missing, and that is slept as well. If
// more is missing than the signals can explain, or if sleep() returns its whole argument without a signal, the process
// has replaced sleep(): its results are accepted.
void pauseFor(unsigned int seconds)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
    std::chrono::seconds cutAtMost(0);
    unsigned int left = seconds;
    while (left > 0) {
        const unsigned int asked = left;
        errno = 0;
        left = sleep(asked);
        if (left >= asked && errno != EINTR) {
            return;
        }
        cutAtMost += std::chrono::seconds(left > 0 || errno == EINTR ? 1 : 0);
        const auto missing =
            std::max(std::chrono::ceil<std::chrono::seconds>(end - Clock::now()), std::chrono::seconds::zero());
        if (left > 0 || missing <= cutAtMost) {
            const auto toSleep = static_cast<unsigned int>(missing.count());
            left = left > 0 ? std::min(left, toSleep) : toSleep;
        }
    }
}

void keepFirst(std::string& kept, const std::string& name)
{
    if (kept.empty()) {
        kept = name;
    }
}

std::string firstNode(const std::vector<std::string>& table)
{
    std::string node;
    for (std::size_t row = firstRow; row < table.size() && node.empty(); ++row) {
        node = column(CFiStringTool::tokenize(table[row], columnSeparators), nameColumn);
    }
    return node;
}

// Deliberate: the type counts only for a path that is not enabled, so a primary one is the last resort and never
// preferred to another enabled one. Pinned by VolumeManagerSupport.AnEnabledPathBeatsAPrimaryOne.
std::string preferredPath(const std::vector<std::string>& table)
{
    std::string enabled;
    std::string primary;
    for (std::size_t row = firstRow; row < table.size(); ++row) {
        const std::vector<std::string> columns = CFiStringTool::tokenize(table[row], columnSeparators);
        std::string name = column(columns, nameColumn);
        const std::string state = column(columns, stateColumn);
        if (name.empty()) {
            continue;
        }
        if (contains(state, activeState)) {
            return name;
        }
        if (contains(state, enabledState)) {
            keepFirst(enabled, name);
        } else if (contains(column(columns, typeColumn), primaryType)) {
            keepFirst(primary, name);
        }
    }
    return enabled.empty() ? primary : enabled;
}

}  // namespace

CZtKIVSupport::~CZtKIVSupport() = default;

bool CZtKIVSupport::isCommandAvailable(ACE_String_Base<char> path, ACE_String_Base<char> name)
{
    const CFiTraceLogFunction scope(traceLog, "isCommandAvailable", __LINE__, sourceFile);
    const std::size_t length = path.length() + name.length();
    path += name;
    // Without memory, the framework's string stays as it was: here the directory alone, which is always available.
    if (path.length() != length) {
        throw std::bad_alloc();
    }
    const std::string command = CFiStringTool::trim(CFiStringTool::tstr2str(path), blanksAroundPath);
    // A path with a NUL names no file: access() would see the part before the NUL, which is another path.
    return command.find('\0') == std::string::npos && access(command.c_str(), X_OK) == 0;
}

bool CZtKIVSupport::isZtKIVInstalled()
{
    const CFiTraceLogFunction scope(traceLog, "isZtKIVInstalled", __LINE__, sourceFile);
    return isCommandAvailable(frameworkText(toolDirectory), frameworkText(multipathingTool));
}

int CZtKIVSupport::executeCommand(const char* command, std::vector<std::string>& output)
{
    const CFiTraceLogFunction scope(traceLog, "executeCommand", __LINE__, sourceFile);
    if (command == nullptr) {
        output.clear();
        return 1;
    }
    // A copy, because the command may be in one of the lines that are cleared now.
    const std::string commandLine = command;
    output.clear();
    KIV_TRACE(INFORMATION, "ExecuteCommand command: %s", commandLine.c_str());
    int result = 0;
    bool hasThrown = false;
    std::optional<CFiExecPipePosix> runner;  // lives until the operation ends
    try {
        runner.emplace(1);
        runner->registerTraceLog(traceLog);
        result = runner->Exec(commandLine, output, "", commandTimeoutSeconds, "", "", "");
    } catch (const EFiExecPipe&) {  // by reference: the process ends when copying the exception fails
        // No record inside the handler: a thread that is cancelled while it writes one would end the process.
        hasThrown = true;
    }
    if (hasThrown) {
        // Deliberate: the exception's text is not traced. Pinned by
        // VolumeManagerSupport.ARunnersExceptionAnswersOneAndKeepsTheLinesPrintedBefore.
        KIV_TRACE(ERROR, "ExecuteCommand - exception thrown in command execution.");
        return 1;
    }
    if (result != 0) {
        KIV_TRACE(WARNING, "Warning - failed with message='%s' and error no '%d'.", joined(output).c_str(), result);
    } else if (!output.empty()) {
        KIV_TRACE(DETAIL, "ExecuteCommand passed with output '%s'", joined(output).c_str());
    }
    return result;
}

// Deliberate: an answer without a header, without rows or with blank rows only is a success with an empty node, and the
// query is not repeated. Pinned by VolumeManagerSupport.AnEmptyAnswerCountsAsSuccess.
int CZtKIVSupport::getZtVMDiskForOSDiskHandler(std::string osDisk, std::string& node)
{
    const CFiTraceLogFunction scope(traceLog, "getZtVMDiskForOSDiskHandler", __LINE__, sourceFile);
    node.clear();
    const std::string command = std::string(toolDirectory) + multipathingTool + nodeQuery + nodeQueryArgument + osDisk;
    std::vector<std::string> lines;
    const Answer answer = query(command, lines);
    if (answer == Answer::commandFailed) {
        KIV_TRACE(WARNING, "CZtKIVSupport::getZtVMDiskForOSDiskHandler : Command [%s] failed with error [%s]",
                  command.c_str(), joined(lines).c_str());
    }
    if (answer != Answer::table) {
        return answer == Answer::noTable ? 0 : 1;
    }
    node = firstNode(lines);
    return 0;
}

// Deliberate: asks first, and rescans only this disk after a failure; the refreshed form does neither. Pinned by
// VolumeManagerSupport.TheWaitedFormGivesUpAfterFourQueriesPausesAndRescans.
int CZtKIVSupport::getZtVMDiskForOSDiskHandler_Waited(std::string osDisk, std::string& node)
{
    const CFiTraceLogFunction scope(traceLog, "getZtVMDiskForOSDiskHandler_Waited", __LINE__, sourceFile);
    int result = 0;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        node.clear();
        result = getZtVMDiskForOSDiskHandler(osDisk, node);
        if (result == 0) {
            return 0;
        }
        KIV_TRACE(DETAIL, "Obtaining kiv nodes failed. need to retry.");
        pauseFor(waitedPauseSeconds);
        ztvmScanDisks({osDisk});
    }
    KIV_TRACE(WARNING, "Warning - obtaining kiv nodes failed even after multiple retries.");
    return result;
}

// Deliberate: a first answer without a node leads to a removal without a name. Pinned by
// VolumeManagerSupport.TheRefreshedFormRemovesEvenAnEmptyNode.
int CZtKIVSupport::getZtVMDiskForOSDiskHandler_Refreshed(std::string osDisk, std::string& node)
{
    const CFiTraceLogFunction scope(traceLog, "getZtVMDiskForOSDiskHandler_Refreshed", __LINE__, sourceFile);
    KIV_TRACE(DETAIL, "We will remove kiv node from ztvm and rescan to regenerate kiv node for disk [%s].",
              osDisk.c_str());
    node.clear();
    int result = getZtVMDiskForOSDiskHandler(osDisk, node);
    if (result == 0) {
        KIV_TRACE(DETAIL, "Obtained kiv nodes is [%s].", node.c_str());
        removeDisksFromZtVM(node);
    }
    node.clear();
    result = 1;
    for (int attempt = 0; attempt < attempts && result != 0; ++attempt) {
        ztvmScanDisks({});
        result = getZtVMDiskForOSDiskHandler(osDisk, node);
        if (result != 0) {
            KIV_TRACE(DETAIL, "Obtaining kiv nodes failed. need to retry.");
            pauseFor(refreshedPauseSeconds);
        }
    }
    if (result != 0) {
        KIV_TRACE(WARNING, "Warning - obtaining kiv nodes failed even after multiple retries.");
    }
    if (!node.empty()) {
        KIV_TRACE(DETAIL, "After refresh, obtained kiv nodes is [%s].", node.c_str());
    }
    return result;
}

int CZtKIVSupport::getOSDiskHandleForZtVMDisk(std::string node, std::string& osDisk)
{
    const CFiTraceLogFunction scope(traceLog, "getOSDiskHandleForZtVMDisk", __LINE__, sourceFile);
    osDisk.clear();
    const std::string command = std::string(toolDirectory) + multipathingTool + pathQuery + pathQueryArgument + node;
    std::vector<std::string> lines;
    const Answer answer = query(command, lines);
    if (answer == Answer::commandFailed) {
        KIV_TRACE(WARNING, "CZtKIVSupport::getOSDiskHandleForZtVMDisk : Command [%s] failed with error [%s]",
                  command.c_str(), joined(lines).c_str());
    }
    if (answer != Answer::table) {
        return answer == Answer::noTable ? 0 : 1;
    }
    osDisk = preferredPath(lines);
    if (osDisk.empty()) {
        KIV_TRACE(WARNING, "Unable to get enabled disk path for kiv node '%s'", node.c_str());
        return 1;
    }
    return 0;
}

int CZtKIVSupport::ztvmScanDisks(const std::vector<std::string>& disks)
{
    const CFiTraceLogFunction scope(traceLog, "ztvmScanDisks", __LINE__, sourceFile);
    const std::string list = joined(disks, diskSeparator);
    std::string command = std::string(toolDirectory) + diskTool + rescan;
    if (!list.empty()) {
        command += rescanArgument + list;
    }
    std::vector<std::string> lines;
    if (executeCommand(command.c_str(), lines) != 0) {
        KIV_TRACE(WARNING, "CZtKIVSupport::ztvmScanDisks : Command [%s] failed with error [%s]", command.c_str(),
                  joined(lines).c_str());
        return 1;
    }
    return 0;
}

// Deliberate: callers see no failure. Pinned by VolumeManagerSupport.AFailedRemovalIsRecordedAndGivesZero.
int CZtKIVSupport::removeDisksFromZtVM(std::string disk)
{
    const CFiTraceLogFunction scope(traceLog, "removeDisksFromZtVM", __LINE__, sourceFile);
    const std::string command = std::string(toolDirectory) + diskTool + removal + disk;
    std::vector<std::string> lines;
    if (executeCommand(command.c_str(), lines) != 0) {
        KIV_TRACE(WARNING, "Warning - removing disk from ztvm db is failed.");
    }
    return 0;
}

// Runs a query and looks for the header of its table. The caller traces a failed command with its own message.
CZtKIVSupport::Answer CZtKIVSupport::query(const std::string& command, std::vector<std::string>& lines)
{
    if (executeCommand(command.c_str(), lines) != 0) {
        return Answer::commandFailed;
    }
    if (lines.size() < fewestLines) {
        KIV_TRACE(WARNING, "Warning - no output of command.");
        return Answer::unusable;
    }
    unsigned long headerLine = 0;
    if (CFiStringTool::find(lines, headerTitle, headerLine, false) == std::string::npos) {
        return Answer::noTable;
    }
    if (headerLine != 0) {
        KIV_TRACE(WARNING, "Warning - no valid output of command.");
        return Answer::unusable;
    }
    return Answer::table;
}

CNativePathClaim::~CNativePathClaim() = default;

std::vector<std::string> CNativePathClaim::getDeviceClaimStrings()
{
    std::vector<std::string> strings;
    const CFiTraceLogFunction scope(traceLog, "getDeviceClaimStrings", __LINE__, sourceFile);
    strings.emplace_back(claimString);
    return strings;
}

// Deliberate: the bare claim string names no disk and is not claimed. Pinned by
// NativePath.APathThatIsNoLongerThanTheClaimStringIsNotClaimed.
ZTFI_DEVICE_CLAIM_LEVEL CNativePathClaim::claim(const std::string& path)
{
    const CFiTraceLogFunction scope(traceLog, "claim", __LINE__, sourceFile);
    for (const std::string& text : getDeviceClaimStrings()) {
        if (text.size() < path.size() && contains(path, text)) {
            return ZTFI_DEVICE_CLAIM_LEVEL_NATIVE;
        }
    }
    return ZTFI_DEVICE_CLAIM_LEVEL_NONE;
}

// Deliberate: the prefix is not checked, so another stack's path that ends in a digit is a partition too. Pinned by
// NativePath.APartitionIsAnyPathOfThreeCharactersOrMoreThatEndsInADigit.
int CNativePathClaim::isPartition(const std::string& path)
{
    const CFiTraceLogFunction scope(traceLog, "isPartition", __LINE__, sourceFile);
    if (path.size() < shortestPartitionPath || !isDigit(path.back())) {
        return 0;
    }
    KIV_TRACE(INFORMATION, "[%s] is a partition", path.c_str());
    return 1;
}

// Deliberate: a path that does not fit loses its end, which is the number. Pinned by
// NativePath.APartitionPathIsCutToOneThousandAndTwentyThreeCharacters.
std::string CNativePathClaim::appendPartitionSuffix(const std::string& device, unsigned int partition)
{
    std::string result;
    const CFiTraceLogFunction scope(traceLog, "appendPartitionSuffix", __LINE__, sourceFile);
    char path[pathCapacity];
    std::snprintf(path, sizeof path, "%s%d", device.c_str(), static_cast<int>(partition));
    result = path;
    return result;
}

std::string CNativePathClaim::removePartitionSuffix(const std::string& device, unsigned int& partition)
{
    std::string result;
    const CFiTraceLogFunction scope(traceLog, "removePartitionSuffix", __LINE__, sourceFile);
    result = device;
    if (contains(device, claimString)) {
        // Never npos: the claim string itself ends in a letter.
        const std::size_t keptLength = device.find_last_not_of(digits) + 1;
        if (keptLength < device.size()) {
            partition = static_cast<unsigned int>(std::strtol(device.c_str() + keptLength, nullptr, 10));
            result.resize(keptLength);
        }
    }
    KIV_TRACE(DETAIL, "devicename aftering removing partition suffix [%s].", result.c_str());
    return result;
}

// Deliberate: adds a slot and does not override slot 9, so a call through the base interface returns the path as it is.
// Pinned by NativePath.CalledThroughTheBaseInterfaceItLooksNothingUp.
std::string CNativePathClaim::getActivePath(const std::string& device, bool waited)
{
    std::string path;
    const CFiTraceLogFunction scope(traceLog, "getActivePath", __LINE__, sourceFile);
    path = device;
    // The base's rule, even in a class derived from this one: a module cannot choose the tools' names.
    const std::string name = CKivDeviceClaimBase::removeDevPrefix(device);
    CZtKIVSupport support;
    support.registerTraceLog(traceLog);
    if (!support.isZtKIVInstalled()) {
        return path;
    }
    std::string node;
    const int result = waited ? support.getZtVMDiskForOSDiskHandler_Waited(name, node)
                              : support.getZtVMDiskForOSDiskHandler_Refreshed(name, node);
    if (result != 0) {
        return path;
    }
    // Deliberate: an empty node is looked up, too. Pinned by
    // NativePathUnderTheVolumeManager.AnEmptyNodeIsStillLookedUp.
    std::string osDisk;
    if (support.getOSDiskHandleForZtVMDisk(node, osDisk) != 0 || osDisk.empty()) {
        return path;
    }
    // Deliberate: called, but the answer is not used. Pinned by
    // NativePathUnderTheVolumeManager.AsksWhetherTheDeviceIsRawAndIgnoresTheAnswer.
    static_cast<void>(isRawDevice(device));
    path = "/dev/" + osDisk;
    KIV_TRACE(DETAIL, "Got active path [%s].", path.c_str());
    return path;
}
