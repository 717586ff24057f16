// The claim module for device-mapper multipath devices.
#ifndef KIVCLAIM_MODULES_KIV_LINUX_DEVICE_MAPPER_CLAIM_H
#define KIVCLAIM_MODULES_KIV_LINUX_DEVICE_MAPPER_CLAIM_H

#include "claim/kiv_device_claim_base.h"
#include "framework/ztfi_export.h"

#include <set>
#include <string>
#include <vector>

namespace kivclaim {
class VolumeReading;
}

// Claims the nodes under /dev/mapper/ that are not LVM logical volumes. Partition names follow the release family of
// the running kernel, which is read again for every answer; some answers probe for device nodes by opening them.
//
// Threads: one at a time; the list of logical volumes is not protected.
// Ownership: as for every claim module.
// Failure: when the list cannot be built, every path under /dev/mapper/ is claimed. The partition operations catch what
// their bodies throw, trace it and return a neutral answer; claim and getDeviceClaimStrings let exceptions through.
//
// Blocking: the first claim after construction, after clearLvmDeviceNameList, and every claim while there is no
// logical volume runs /sbin/lvdisplay on the caller's thread.
class ZTFI_API CKivDeviceMapperClaim : public CKivDeviceClaimBase {
public:
    ~CKivDeviceMapperClaim() override;

    // Slot 3: "/dev/mapper/".
    std::vector<std::string> getDeviceClaimStrings() override;
    // Slot 4: KIV_SECONDARY for a path that contains "/dev/mapper/" and is not a logical volume.
    ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) override;
    // Slot 5: 1 for a name that ends in "part" and one digit; for any other path that ends in a digit, 1 when the
    // path without its last one or two characters can be opened.
    int isPartition(const std::string& path) override;
    // Slot 6: "_part", "-part" or "p" and the number, by release family.
    std::string appendPartitionSuffix(const std::string& device, unsigned int partition) override;
    // Slot 7: the path without its suffix, and its last digit. `partition` stays untouched for a path without
    // "/dev/mapper/", and becomes 0 for one that is not a partition.
    std::string removePartitionSuffix(const std::string& device, unsigned int& partition) override;
    // Slot 8: clears the list of logical volumes; the next request builds it again.
    void clearLvmDeviceNameList() override;

    // The release family of the running kernel: 11 (2.6.27 and later 2.6, 3.0), 12 (3.12 and later), -1 (any other).
    int getSuSEVersion();

    // 1 when `path` is exactly a path in the list of logical volumes, otherwise 0. Builds the list if it is empty; 0
    // when that fails.
    int isLinuxLogicalVolume(const std::string& path);

    // Adds the volumes that /sbin/lvdisplay reports to the list. 0: done; 6: the command failed or its output was not
    // understood; 1: an exception was caught. Names that were added before a failure stay.
    int createLvmDeviceNamesList();

    // The exit code or signal number in a raw wait status; any other status is returned unchanged.
    long getExecPipeWaitPidStatus(long status);

private:
    friend class kivclaim::VolumeReading;
    // The work of createLvmDeviceNamesList, with this limit; `reading`, which may be null, notes failures.
    ZTFI_INTERNAL int buildList(unsigned long timeoutSeconds, kivclaim::VolumeReading* reading);
    ZTFI_INTERNAL std::string wholeDeviceOfUnknownRelease(const std::string& path, unsigned int& partition);
    ZTFI_INTERNAL int reportFailedListing(long waitStatus, const std::vector<std::string>& output);
    ZTFI_INTERNAL int addLogicalVolumes(const std::vector<std::string>& output);
    ZTFI_INTERNAL bool logicalVolumeName(const std::string& line, std::string& name);

    std::set<std::string> logicalVolumePaths;
};

#endif
