// The entry point of the plug-in: what a host constructs and asks.
#ifndef KIVCLAIM_CLAIM_KIV_CLAIM_MANAGER_H
#define KIVCLAIM_CLAIM_KIV_CLAIM_MANAGER_H

#include "claim/kiv_device_claim_base.h"
#include "framework/cfitracelog.h"
#include "framework/ztfi_export.h"

#include <string>
#include <vector>

#ifdef _GLIBCXX_DEBUG
#error "kivclaim's std::vector is the ordinary one: compile without -D_GLIBCXX_DEBUG"
#include "framework/the_error_above_says_what_is_needed"
#endif

// Owns an ordered list of claim modules and answers each request from the one that claims the path most strongly.
//
// What for: construct it, register a trace log (at any time, any number of times), register modules of your own,
// ask, delete it. Nothing is cached: every request asks every module again.
// Threads: takes no lock; only one thread at a time may use it. A request may run external commands on that thread.
// Ownership: the manager deletes every module in its list; the trace log is shared by its reference count.
// Failure: an unclaimed path gives the neutral answer of each operation. The manager catches nothing: a module's
// exception passes through to the host, and the manager can still be used.
//
// The slots below are the binary contract; docs/contract.md says how it may grow.
class ZTFI_API CKivClaimManager : public virtual ztfi_pdk_4_4::CFiTraceable {
public:
    // Creates the built-in modules. None of them has a trace log until one is registered.
    CKivClaimManager();
    CKivClaimManager(const CKivClaimManager&) = delete;
    CKivClaimManager& operator=(const CKivClaimManager&) = delete;

    // Slot 1 (complete and deleting destructor): deletes all modules, in list order.
    ~CKivClaimManager() override;

    // Slot 2: passes the current trace log to `module`, appends it to the list and owns it from then on. Null is
    // ignored. A module that a manager already owns, or that is on the calling thread's stack, is refused with a
    // record of level 1, and its owner keeps it. When appending fails, the caller still owns the module. A module may
    // register another one during a request: the new one is asked from the next request on.
    virtual void registerClaimModule(CKivDeviceClaimBase* module);

    // Slot 3: replaces the trace log of the manager, then of every module in list order.
    void registerTraceLog(
        const ztfi_pdk_4_4::CFiSmartPtr<ztfi_pdk_4_4::CFiTraceLog,
                                        ztfi_pdk_4_4::CFiContextSingletonAllocator<ztfi_pdk_4_4::CFiTraceLog>>& log)
        override;

    // Slot 4: the patterns of all modules. Those of a module come before those of the modules asked earlier.
    virtual std::vector<std::string> getDeviceClaimStrings();

    // Slot 5: the strongest claim on the path, ZTFI_DEVICE_CLAIM_LEVEL_NONE when no module claims it.
    virtual ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path);

    // Slot 6: 1 when the winning module calls the path a partition, otherwise 0; 0 for an unclaimed path.
    virtual int isPartition(const std::string& path);

    // Slot 7: the path of partition `partition` of the whole device `device`; empty for an unclaimed path.
    virtual std::string appendPartitionSuffix(const std::string& device, unsigned int partition);

    // Slot 8: the whole device of `device`, and its number in `partition`; empty for an unclaimed path, `partition`
    // untouched. Set `partition` before the call: some answers of a module leave it untouched as well.
    virtual std::string removePartitionSuffix(const std::string& device, unsigned int& partition);

    // Slot 9: does nothing, on purpose. Only the module that has a list of logical volumes can clear it.
    virtual void clearLvmDeviceNameList();

    // Asks every module, in list order, for its claim on `path`. Returns the strongest level and sets `module` to the
    // first module that gave it. If no module claims the path, returns 0 and leaves `module` as it was, so set it to
    // null before. The manager still owns the module.
    ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL getClaimModule(CKivDeviceClaimBase*& module, const std::string& path);

    // The modules in the order in which they are asked. The manager still owns them; registering another one
    // invalidates the list's iterators.
    const std::vector<CKivDeviceClaimBase*>& claimModules() const { return modules; }

private:
    std::vector<CKivDeviceClaimBase*> modules;
};

#endif
