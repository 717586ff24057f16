#include "tests/faults/operations.h"

#include <stdexcept>

using recording::Host;
using recording::lines;
using ztfi_pdk_4_4::EFiExecPipe;

namespace faults {

namespace {

// Texts that are too long for a string's own buffer, so that each copy of them allocates.
const std::string map = "/dev/mapper/a-map-with-a-long-name";
const std::string mapPartition = "/dev/mapper/a-map-with-a-long-name-part7";
const std::string probedPartition = "/dev/mapper/a-map-with-a-long-name7";
const std::string volume = "/dev/mapper/a-group-with-a-long-name-volume";
const std::string pseudo = "/dev/emcpowerabcdefghijklmnop";
const std::string pseudoPartition = "/dev/emcpowerabcdefghijklmnop7";
const std::string disk = "/dev/sdabcdefghijklmnopqrstuvwxyz";
const std::string diskPartition = "/dev/sdabcdefghijklmnopqrstuvwxyz7";
const std::string activePath = "/dev/an_active_path_with_a_long_name";
const std::string empty;
const std::string bareDisk = "sdabcdefghijklmnopqrstuvwxyz";
const std::string node = "a_node_with_a_long_name";
const std::vector<std::string> disks = {bareDisk, "another_disk_with_a_long_name"};
constexpr char command[] = "/bin/a_command_with_a_long_name -x";

constexpr char listing[] = "/sbin/lvdisplay";
constexpr char nodeOfDisk[] = "/usr/sbin/ztkivadm   getkivnode  nodename=sdabcdefghijklmnopqrstuvwxyz";
constexpr char pathsOfNode[] = "/usr/sbin/ztkivadm   getsubpaths  kivnodename=a_node_with_a_long_name";
constexpr char rescanOfDisk[] = "/usr/sbin/ztdisk   scandisks  device=sdabcdefghijklmnopqrstuvwxyz";
constexpr char rescanOfDisks[] =
    "/usr/sbin/ztdisk   scandisks  device=sdabcdefghijklmnopqrstuvwxyz,another_disk_with_a_long_name";
constexpr char rescanOfAll[] = "/usr/sbin/ztdisk   scandisks ";
constexpr char removal[] = "/usr/sbin/ztdisk   rm a_node_with_a_long_name";

const recording::Lines nodeTable = lines({"NAME", "====", "a_node_with_a_long_name ENABLED"});
const recording::Lines pathTable = lines(
    {"NAME STATE TYPE", "====", "an_active_path_with_a_long_name ENABLED(A) PRIMARY", "another DISABLED PRIMARY"});

std::string text(long number)
{
    return std::to_string(number);
}

void bare(Host& /*host*/)
{
}

void oneVolume(Host& host)
{
    host.prints(listing, lines({"  LV Name                /dev/a-group-with-a-long-name/volume",
                                "  VG Name                a-group-with-a-long-name"}))
        .times(2);
}

void failedListing(Host& host)
{
    host.fails(listing, 5, 5 << 8, lines({"a line of the output with many words"})).times(2);
}

void throwingListing(Host& host)
{
    host.throws(listing,
                [] {
                    throw EFiExecPipe{"a text that is longer than a string's buffer",
                                      L"a text that is longer than a string's buffer", 13, 256};
                })
        .times(2);
}

void release(Host& host, const char* text)
{
    host.kernelRelease(text);
    host.device("/dev/mapper/a-map-with-a-long-name");
}

void volumeManager(Host& host)
{
    host.executable("/usr/sbin/ztkivadm");
    host.prints(nodeOfDisk, nodeTable).times(9);
    host.prints(pathsOfNode, pathTable).times(9);
    host.prints(rescanOfDisk, {}).times(9);
    host.prints(rescanOfDisks, {}).times(9);
    host.prints(rescanOfAll, {}).times(9);
    host.prints(removal, {}).times(9);
    host.prints(command, lines({"a line of the output with many words"})).times(9);
}

// The first answer about a node is a failure, so that it is asked again after a pause.
void slowVolumeManager(Host& host)
{
    host.fails(nodeOfDisk, 1, 256, lines({"a line of the output with many words"}));
    volumeManager(host);
}

void failingVolumeManager(Host& host)
{
    for (const char* const line :
         {nodeOfDisk, pathsOfNode, rescanOfDisk, rescanOfDisks, rescanOfAll, removal, command}) {
        host.fails(line, 9, 9 << 8, lines({"a line of the output with many words"})).times(20);
    }
}

void throwingCommand(Host& host)
{
    host.throws(command,
                [] {
                    throw EFiExecPipe{"a text that is longer than a string's buffer",
                                      L"a text that is longer than a string's buffer", 13, 256};
                })
        .times(2);
}

std::vector<Operation> ofTheManager()
{
    return {
        {"ManagerClaimsAMap", oneVolume, [](Library& l) { return text(l.manager.claim(map)); }, "16", {}},
        {"ManagerClaimsNoVolume", oneVolume, [](Library& l) { return text(l.manager.claim(volume)); }, "0", {"16"}},
        {"ManagerClaimsADisk", bare, [](Library& l) { return text(l.manager.claim(disk)); }, "2", {}},
        {"ManagerClaimsNothing", bare, [](Library& l) { return text(l.manager.claim(bareDisk)); }, "0", {}},
        {"ManagerIsPartition",
         oneVolume,
         [](Library& l) { return text(l.manager.isPartition(mapPartition)); },
         "1",
         {"0"}},
        {"ManagerAppends",
         oneVolume,
         [](Library& l) { return l.manager.appendPartitionSuffix(map, 7); },
         mapPartition,
         {map}},
        {"ManagerAppendsNothing",
         bare,
         [](Library& l) { return l.manager.appendPartitionSuffix(bareDisk, 7); },
         "",
         {}},
        {"ManagerRemoves",
         oneVolume,
         [](Library& l) { return l.manager.removePartitionSuffix(mapPartition, l.partition); },
         map,
         {mapPartition}},
        {"ManagerMergesClaimStrings",
         bare,
         [](Library& l) { return text(l.manager.getDeviceClaimStrings().size()); },
         "3",
         {}},
        {"ManagerSelects",
         bare,
         [](Library& l) {
             CKivDeviceClaimBase* module = nullptr;
             return text(l.manager.getClaimModule(module, pseudo));
         },
         "16",
         {}},
        {"ManagerRegistersALog",
         bare,
         [](Library& l) {
             l.manager.registerTraceLog(l.host.log());
             return std::string("done");
         },
         "done",
         {}},
        {"ManagerRegistersAModule",
         bare,
         [](Library& l) {
             l.manager.registerClaimModule(l.newModule.get());
             return std::string("done");
         },
         "done",
         {}},
        {"ManagerClears",
         bare,
         [](Library& l) {
             l.manager.clearLvmDeviceNameList();
             return std::string("done");
         },
         "done",
         {}},
    };
}

std::vector<Operation> ofTheMapper()
{
    const auto old = [](Host& host) { release(host, "3.0.0"); };
    const auto current = [](Host& host) { release(host, "6.1.0"); };
    const auto unknown = [](Host& host) { release(host, "3.5.0"); };
    return {
        {"MapperClaimStrings",
         bare,
         [](Library& l) { return l.mapper.getDeviceClaimStrings().front(); },
         "/dev/mapper/",
         {}},
        {"MapperClaimsAMap", oneVolume, [](Library& l) { return text(l.mapper.claim(map)); }, "16", {}},
        {"MapperClaimsNoVolume", oneVolume, [](Library& l) { return text(l.mapper.claim(volume)); }, "0", {"16"}},
        {"MapperKnowsAPartitionByName",
         bare,
         [](Library& l) { return text(l.mapper.isPartition(mapPartition)); },
         "1",
         {"0"}},
        {"MapperKnowsAPartitionByProbe",
         current,
         [](Library& l) { return text(l.mapper.isPartition(probedPartition)); },
         "1",
         {"0"}},
        {"MapperKnowsAWholeDevice", current, [](Library& l) { return text(l.mapper.isPartition(map)); }, "0", {}},
        {"MapperKnowsAnEmptyPath", current, [](Library& l) { return text(l.mapper.isPartition(empty)); }, "0", {}},
        {"MapperAppendsByRelease11",
         old,
         [](Library& l) { return l.mapper.appendPartitionSuffix(map, 7); },
         map + "_part7",
         {map}},
        {"MapperAppendsByRelease12",
         current,
         [](Library& l) { return l.mapper.appendPartitionSuffix(map, 7); },
         map + "-part7",
         {map}},
        {"MapperAppendsByProbe",
         [](Host& host) { host.kernelRelease("3.5.0"), host.device(probedPartition); },
         [](Library& l) { return l.mapper.appendPartitionSuffix(map, 7); },
         probedPartition,
         {map}},
        {"MapperAppendsBehindADigit",
         unknown,
         [](Library& l) { return l.mapper.appendPartitionSuffix(probedPartition, 7); },
         probedPartition + "p7",
         {probedPartition}},
        {"MapperAppendsToNothing",
         current,
         [](Library& l) { return l.mapper.appendPartitionSuffix(empty, 7); },
         "",
         {}},
        {"MapperRemovesByName",
         current,
         [](Library& l) { return l.mapper.removePartitionSuffix(mapPartition, l.partition); },
         map,
         {mapPartition}},
        {"MapperRemovesByProbe",
         unknown,
         [](Library& l) { return l.mapper.removePartitionSuffix(probedPartition, l.partition); },
         map,
         {probedPartition}},
        {"MapperRemovesNothing",
         current,
         [](Library& l) { return l.mapper.removePartitionSuffix(map, l.partition); },
         map,
         {}},
        {"MapperRemovesNothingForeign",
         current,
         [](Library& l) { return l.mapper.removePartitionSuffix(diskPartition, l.partition); },
         diskPartition,
         {}},
        {"MapperKnowsAVolume",
         oneVolume,
         [](Library& l) { return text(l.mapper.isLinuxLogicalVolume(volume)); },
         "1",
         {"0"}},
        {"MapperBuildsTheList",
         oneVolume,
         [](Library& l) { return text(l.mapper.createLvmDeviceNamesList()); },
         "0",
         {"1"}},
        {"MapperFailsToBuildTheList",
         failedListing,
         [](Library& l) { return text(l.mapper.createLvmDeviceNamesList()); },
         "6",
         {"1"}},
        {"MapperIsThrownAtByTheRunner",
         throwingListing,
         [](Library& l) { return text(l.mapper.createLvmDeviceNamesList()); },
         "1",
         {}},
        {"MapperClears",
         bare,
         [](Library& l) {
             l.mapper.clearLvmDeviceNameList();
             return std::string("done");
         },
         "done",
         {}},
        {"MapperReadsTheRelease", current, [](Library& l) { return text(l.mapper.getSuSEVersion()); }, "12", {}},
        {"MapperDecodesAStatus",
         bare,
         [](Library& l) { return text(l.mapper.getExecPipeWaitPidStatus(256)); },
         "1",
         {}},
    };
}

std::vector<Operation> ofTheOtherModules()
{
    return {
        {"PowerPathClaimStrings",
         bare,
         [](Library& l) { return l.powerPath.getDeviceClaimStrings().front(); },
         "/dev/emcpower",
         {}},
        {"PowerPathClaims", bare, [](Library& l) { return text(l.powerPath.claim(pseudo)); }, "16", {}},
        {"PowerPathIsPartition",
         bare,
         [](Library& l) { return text(l.powerPath.isPartition(pseudoPartition)); },
         "1",
         {}},
        {"PowerPathAppends",
         bare,
         [](Library& l) { return l.powerPath.appendPartitionSuffix(pseudo, 7); },
         pseudoPartition,
         {}},
        {"PowerPathRemoves",
         bare,
         [](Library& l) { return l.powerPath.removePartitionSuffix(pseudoPartition, l.partition); },
         pseudo,
         {}},
        {"NativeClaimStrings",
         bare,
         [](Library& l) { return l.native.getDeviceClaimStrings().front(); },
         "/dev/sd",
         {}},
        {"NativeClaims", bare, [](Library& l) { return text(l.native.claim(disk)); }, "2", {}},
        {"NativeIsPartition", bare, [](Library& l) { return text(l.native.isPartition(diskPartition)); }, "1", {}},
        {"NativeAppends", bare, [](Library& l) { return l.native.appendPartitionSuffix(disk, 7); }, diskPartition, {}},
        {"NativeRemoves",
         bare,
         [](Library& l) { return l.native.removePartitionSuffix(diskPartition, l.partition); },
         disk,
         {}},
        {"NativeActivePathWithoutTheTool",
         bare,
         [](Library& l) { return l.native.getActivePath(disk, true); },
         disk,
         {}},
        {"NativeActivePathWaited",
         slowVolumeManager,
         [](Library& l) { return l.native.getActivePath(disk, true); },
         activePath,
         {}},
        {"NativeActivePathRefreshed",
         slowVolumeManager,
         [](Library& l) { return l.native.getActivePath(disk, false); },
         activePath,
         {}},
        {"NativeActivePathThroughTheInterface",
         bare,
         [](Library& l) { return static_cast<CKivDeviceClaimBase&>(l.native).getActivePath(disk, true); },
         disk,
         {}},
        {"NativeIsRaw", bare, [](Library& l) { return text(l.native.isRawDevice(disk) ? 1 : 0); }, "1", {}},
        {"NativeRemovesThePrefix", bare, [](Library& l) { return l.native.removeDevPrefix(disk); }, bareDisk, {}},
    };
}

std::vector<Operation> ofTheSupport()
{
    return {
        {"SupportFindsTheTool",
         volumeManager,
         [](Library& l) { return text(l.support.isZtKIVInstalled() ? 1 : 0); },
         "1",
         {}},
        {"SupportMissesTheTool", bare, [](Library& l) { return text(l.support.isZtKIVInstalled() ? 1 : 0); }, "0", {}},
        {"SupportRunsACommand",
         volumeManager,
         [](Library& l) { return text(l.support.executeCommand(command, l.output)); },
         "0",
         {}},
        {"SupportRunsAFailingCommand",
         failingVolumeManager,
         [](Library& l) { return text(l.support.executeCommand(command, l.output)); },
         "9",
         {}},
        {"SupportRunsAThrowingCommand",
         throwingCommand,
         [](Library& l) { return text(l.support.executeCommand(command, l.output)); },
         "1",
         {}},
        {"SupportRunsNoCommand",
         bare,
         [](Library& l) { return text(l.support.executeCommand(nullptr, l.output)); },
         "1",
         {}},
        {"SupportFindsANode",
         volumeManager,
         [](Library& l) { return text(l.support.getZtVMDiskForOSDiskHandler(bareDisk, l.name)); },
         "0",
         {}},
        {"SupportFindsNoNode",
         failingVolumeManager,
         [](Library& l) { return text(l.support.getZtVMDiskForOSDiskHandler(bareDisk, l.name)); },
         "1",
         {}},
        {"SupportWaitsForANode",
         slowVolumeManager,
         [](Library& l) { return text(l.support.getZtVMDiskForOSDiskHandler_Waited(bareDisk, l.name)); },
         "0",
         {}},
        {"SupportWaitsInVain",
         failingVolumeManager,
         [](Library& l) { return text(l.support.getZtVMDiskForOSDiskHandler_Waited(bareDisk, l.name)); },
         "1",
         {}},
        {"SupportRefreshesANode",
         slowVolumeManager,
         [](Library& l) { return text(l.support.getZtVMDiskForOSDiskHandler_Refreshed(bareDisk, l.name)); },
         "0",
         {}},
        {"SupportRefreshesInVain",
         failingVolumeManager,
         [](Library& l) { return text(l.support.getZtVMDiskForOSDiskHandler_Refreshed(bareDisk, l.name)); },
         "1",
         {}},
        {"SupportFindsAPath",
         volumeManager,
         [](Library& l) { return text(l.support.getOSDiskHandleForZtVMDisk(node, l.name)); },
         "0",
         {}},
        {"SupportFindsNoPath",
         failingVolumeManager,
         [](Library& l) { return text(l.support.getOSDiskHandleForZtVMDisk(node, l.name)); },
         "1",
         {}},
        {"SupportRescans", volumeManager, [](Library& l) { return text(l.support.ztvmScanDisks(disks)); }, "0", {}},
        {"SupportRescansInVain",
         failingVolumeManager,
         [](Library& l) { return text(l.support.ztvmScanDisks(disks)); },
         "1",
         {}},
        {"SupportRemovesANode",
         volumeManager,
         [](Library& l) { return text(l.support.removeDisksFromZtVM(node)); },
         "0",
         {}},
        {"SupportRemovesInVain",
         failingVolumeManager,
         [](Library& l) { return text(l.support.removeDisksFromZtVM(node)); },
         "0",
         {}},
    };
}

}  // namespace

Library::~Library()
{
    // The list tells who owns a module: its registration may have ended with an exception after the append.
    if (manager.claimModules().back() == newModule.get()) {
        newModule.release();
    }
}

Library::Library(Host& host) : host(host)
{
    manager.registerTraceLog(host.log());
    mapper.registerTraceLog(host.log());
    powerPath.registerTraceLog(host.log());
    native.registerTraceLog(host.log());
    support.registerTraceLog(host.log());
}

const std::vector<Operation>& allOperations()
{
    static const std::vector<Operation> all = [] {
        std::vector<Operation> collected;
        for (const auto& part : {ofTheManager(), ofTheMapper(), ofTheOtherModules(), ofTheSupport()}) {
            collected.insert(collected.end(), part.begin(), part.end());
        }
        return collected;
    }();
    return all;
}

}  // namespace faults
