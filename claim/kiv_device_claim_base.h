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

// One multipathing stack, as the claim manager and the host see it. Derive from it to teach the manager another one.
//
// Threads: driven by one thread at a time; a module need not lock.
// Ownership: made with new; once registered, the claim manager deletes it.
// Failure: what an operation throws passes through the manager to the host.
//
// The slots below are the binary contract; docs/contract.md says how it may grow.
class ZTFI_API CKivDeviceClaimBase : public ztfi_pdk_4_4::CFiTraceable {
public:
    // Slot 1 (complete and deleting destructor): releases the trace log. Slot 2 is the inherited registerTraceLog.
    ~CKivDeviceClaimBase() override = default;

    // Slot 3: the device-path patterns that this module recognises, in an order of its own; may be empty.
    virtual std::vector<std::string> getDeviceClaimStrings() = 0;

    // Slot 4: how strongly the module claims the path; ZTFI_DEVICE_CLAIM_LEVEL_NONE when it does not. Asked of every
    // module for every request, so it must be cheap to repeat.
    virtual ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) = 0;

    // Slots 5 to 7 are asked only of the module whose claim won the path.
    // Slot 5: 1 when the path names a partition of a device that this module claims, otherwise 0.
    virtual int isPartition(const std::string& path) = 0;

    // Slot 6: the path of partition `partition` of the whole device `device`, in this module's naming.
    virtual std::string appendPartitionSuffix(const std::string& device, unsigned int partition) = 0;

    // Slot 7: the whole device of the partition path `device`; `partition` receives the partition number. A path
    // that is no partition comes back unchanged.
    virtual std::string removePartitionSuffix(const std::string& device, unsigned int& partition) = 0;

    // Slot 8: forgets a cached list of logical volumes. Here: nothing to forget.
    virtual void clearLvmDeviceNameList();

    // Slot 9: the path by which the device is used now. Here: the path itself; the flag is ignored. A module may have
    // one of the same name that takes a reference, in a slot of its own; g++ reports that here, at the hidden one.
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
