// The claim levels, and the interface that every claim module implements.
#ifndef KIVCLAIM_CLAIM_KIV_DEVICE_CLAIM_BASE_H
#define KIVCLAIM_CLAIM_KIV_DEVICE_CLAIM_BASE_H

#include "framework/cfitracelog.h"
#include "framework/ztfi_export.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ztfi_pdk_4_4 {

// How strongly a module claims a path. A larger value is a stronger claim; only 0 means "not claimed". The host's
// enumeration may hold more values; these are the ones that the built-in modules answer.
enum ZTFI_DEVICE_CLAIM_LEVEL : std::uint32_t {
    ZTFI_DEVICE_CLAIM_LEVEL_NONE = 0,           // the module does not recognise the path
    ZTFI_DEVICE_CLAIM_LEVEL_NATIVE = 2,         // a native disk path
    ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY = 16  // a multipath pseudo device
};

}  // namespace ztfi_pdk_4_4

// One multipathing stack, as the claim manager and the host see it. Derive from it to add another stack.
//
// Threads: only one thread at a time calls it; a module need not lock.
// Ownership: created with new; once registered, the claim manager deletes it.
// Failure: an operation's exception passes through the manager to the host.
//
// The slots below are the binary contract; docs/contract.md says how it may grow.
class ZTFI_API CKivDeviceClaimBase : public ztfi_pdk_4_4::CFiTraceable {
public:
    // Slot 1 (complete and deleting destructor): releases the trace log. Slot 2 is the inherited registerTraceLog.
    ~CKivDeviceClaimBase() override = default;

    // Slot 3: the device-path patterns that this module recognises, in any order; may be empty.
    virtual std::vector<std::string> getDeviceClaimStrings() = 0;

    // Slot 4: how strongly the module claims the path; ZTFI_DEVICE_CLAIM_LEVEL_NONE when it does not. Every request
    // calls it on every module, so repeated calls must be cheap.
    virtual ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) = 0;

    // The manager calls slots 5 to 7 only on the module whose claim won the path.
    // Slot 5: 1 when the path names a partition of a device that this module claims, otherwise 0.
    virtual int isPartition(const std::string& path) = 0;

    // Slot 6: the path of partition `partition` of the whole device `device`, in this module's naming.
    virtual std::string appendPartitionSuffix(const std::string& device, unsigned int partition) = 0;

    // Slot 7: the whole device of the partition path `device`; `partition` receives the partition number. A path
    // that is not a partition is returned unchanged.
    virtual std::string removePartitionSuffix(const std::string& device, unsigned int& partition) = 0;

    // Slot 8: clears a cached list of logical volumes. Here: does nothing.
    virtual void clearLvmDeviceNameList();

    // Slot 9: the path that is in use for the device now. Here: the path itself; the flag is ignored.
    // CNativePathClaim adds an overload by reference (slot 12) that hides this one; g++ warns here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
    virtual std::string getActivePath(std::string device, bool waited);
#pragma GCC diagnostic pop

    // Slot 10: true if and only if "/dev/" occurs anywhere in the path.
    virtual bool isRawDevice(std::string device);

    // Slot 11: the path without one leading "/dev/"; any other path unchanged.
    virtual std::string removeDevPrefix(std::string device);
};

#endif
