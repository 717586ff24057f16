// The claim module for native SCSI disks, and the gateway to the volume manager's multipathing tools.
#ifndef KIVCLAIM_MODULES_KIV_NATIVEPATH_CLAIM_H
#define KIVCLAIM_MODULES_KIV_NATIVEPATH_CLAIM_H

#include "claim/kiv_device_claim_base.h"
#include "framework/ztfi_export.h"

#include <ace/SString.h>

#include <string>
#include <vector>

// Runs the volume manager's tools, /usr/sbin/ztkivadm and /usr/sbin/ztdisk, and reads the tables that they print:
// from the OS disk to its multipath node, and from a node to the OS path that should be used.
//
// What for: create one for a request, register a trace log, ask whether the tools are installed, ask.
// Threads: no state but the trace log; different threads may use different objects at the same time. Commands and
// pauses block the caller.
// Ownership: lives on the stack of its user; the trace log is shared by its reference count.
// Failure: a tool that fails or prints no table gives a non-zero result and a warning in the log. Only EFiExecPipe is
// caught; every other exception passes through.
//
// Disks are named as in the tools, without "/dev/". Every lookup empties its output argument first and returns 0 for
// success. Success with an empty name is possible: check the name.
class ZTFI_API CZtKIVSupport : public ztfi_pdk_4_4::CFiTraceable {
public:
    // Slot 1 (complete and deleting destructor): releases the trace log. Slot 2 is the inherited registerTraceLog.
    // There are no others: the operations below are not virtual.
    ~CZtKIVSupport() override;

    // True when the file may be executed whose path is the two texts joined, without blanks at both ends.
    bool isCommandAvailable(ACE_String_Base<char> path, ACE_String_Base<char> name);

    // True when the multipathing tool may be executed. Every call checks again.
    bool isZtKIVInstalled();

    // Runs a command line, which may itself be one of the strings in `output`, and sets `output` to the lines that it
    // prints, also after a failure. Returns the runner's result, 0 for success; 1 when the runner threw EFiExecPipe,
    // and for null.
    int executeCommand(const char* command, std::vector<std::string>& output);

    // The node of an OS disk: the first one in the table. Returns 0, with `node` empty when the answer has no table
    // header or no rows; 1 when the query failed.
    int getZtVMDiskForOSDiskHandler(std::string osDisk, std::string& node);

    // The same for a disk whose node may be about to appear: up to four queries, each failure followed by a pause of
    // 5 seconds and a rescan of this disk. Returns the last query's result.
    int getZtVMDiskForOSDiskHandler_Waited(std::string osDisk, std::string& node);

    // The same for a disk whose node may be stale: first has the volume manager remove the node that it names for the
    // disk, then up to four times a rescan of all disks and a query, each failure followed by a pause of 10 seconds.
    // Returns the last query's result.
    int getZtVMDiskForOSDiskHandler_Refreshed(std::string osDisk, std::string& node);

    // The OS path to use for a node: the first active one, else the first enabled one, else the first primary one.
    // Returns 0, with `osDisk` empty when the answer has no table header; 1 when the query failed or there is no such
    // path.
    int getOSDiskHandleForZtVMDisk(std::string node, std::string& osDisk);

    // Makes the volume manager rescan the named disks, or all disks when the list is empty or contains only an empty
    // name. Returns 1 when that failed.
    int ztvmScanDisks(const std::vector<std::string>& disks);

    // Makes the volume manager remove a node until the next rescan. Always returns 0.
    int removeDisksFromZtVM(std::string disk);

private:
    enum class Answer { commandFailed, unusable, noTable, table };

    ZTFI_INTERNAL Answer query(const std::string& command, std::vector<std::string>& lines);
};

// The class below deliberately adds a second getActivePath beside the inherited one; clang++ warns here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"

// Claims /dev/sd followed by letters (the whole disk) and decimal digits (the partition), and finds the path that the
// volume manager's multipathing uses for the same disk.
//
// Threads: no state but the trace log; one thread at a time. Slot 12 runs commands and pauses, up to 20 or 40 seconds
// besides the commands' own time, on the caller's thread; the other slots use only the path.
// Ownership: as for every claim module.
// Failure: when the answer cannot be found, the path is returned unchanged. Nothing is caught: std::bad_alloc and the
// host's exceptions pass through.
class ZTFI_API CNativePathClaim : public CKivDeviceClaimBase {
public:
    ~CNativePathClaim() override;

    // Slot 3: "/dev/sd".
    std::vector<std::string> getDeviceClaimStrings() override;
    // Slot 4: NATIVE when one of the claim strings is shorter than the path and occurs anywhere in it.
    ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) override;
    // Slot 5: 1 when the path has three or more characters and ends in a digit.
    int isPartition(const std::string& path) override;
    // Slot 6: the disk followed by the number in signed decimal; at most 1023 characters in all.
    std::string appendPartitionSuffix(const std::string& device, unsigned int partition) override;
    // Slot 7: the disk without its trailing digits, and their value. A path without "/dev/sd" or without trailing
    // digits is returned unchanged, `partition` untouched.
    std::string removePartitionSuffix(const std::string& device, unsigned int& partition) override;

    // Slot 12: the path that the volume manager's multipathing uses now for the disk `device`; `device` itself when
    // there is no volume manager or no answer. `waited`: wait for the disk's node to appear; otherwise have the node
    // removed and rescan. A call through CKivDeviceClaimBase reaches slot 9, which looks nothing up.
    virtual std::string getActivePath(const std::string& device, bool waited);
};

#pragma GCC diagnostic pop

#endif
