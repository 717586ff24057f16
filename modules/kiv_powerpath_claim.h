// The claim module for EMC PowerPath pseudo devices.
#ifndef KIVCLAIM_MODULES_KIV_POWERPATH_CLAIM_H
#define KIVCLAIM_MODULES_KIV_POWERPATH_CLAIM_H

#include "claim/kiv_device_claim_base.h"
#include "framework/ztfi_export.h"

#include <string>
#include <vector>

// Claims /dev/emcpower followed by letters (the whole device) and decimal digits (the partition). Uses only the path:
// no device is opened.
//
// Threads: no state but the trace log; one thread at a time.
// Ownership: as for every claim module.
// Failure: only running out of memory, as std::bad_alloc.
class ZTFI_API CKivPowerPathClaim : public CKivDeviceClaimBase {
public:
    ~CKivPowerPathClaim() override;

    // Slot 3: "/dev/emcpower".
    std::vector<std::string> getDeviceClaimStrings() override;
    // Slot 4: KIV_SECONDARY when one of the claim strings occurs anywhere in the path.
    ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) override;
    // Slot 5: 1 when the path contains "/dev/emcpower" and ends in a digit.
    int isPartition(const std::string& path) override;
    // Slot 6: the device followed by the number in signed decimal.
    std::string appendPartitionSuffix(const std::string& device, unsigned int partition) override;
    // Slot 7: the device without its trailing digits, and their value (0 when there are none). A path without
    // "emcpower" is returned unchanged, `partition` untouched.
    std::string removePartitionSuffix(const std::string& device, unsigned int& partition) override;
};

#endif
