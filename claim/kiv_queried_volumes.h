// The list of logical volumes that a claim query keeps, as the device-mapper modules see it. Not installed.
#ifndef KIVCLAIM_CLAIM_KIV_QUERIED_VOLUMES_H
#define KIVCLAIM_CLAIM_KIV_QUERIED_VOLUMES_H

#include "claim/kiv_claim_query.h"
#include "framework/cfitracelog.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kivclaim {

using LogPointer = ztfi_pdk_4_4::CFiSmartPtr<ztfi_pdk_4_4::CFiTraceLog>;

// The facts about one reading of the list.
struct ListingFacts {
    VolumeListing::State state = VolumeListing::State::threw;
    std::chrono::system_clock::time_point when;
    std::vector<std::string> volumes;  // sorted
    std::int64_t waitStatus{};
    std::string message;
};

// Runs lvdisplay with this limit and reads what it prints, with the records of createLvmDeviceNamesList in `log`.
// Defined with the modules. Throws std::bad_alloc only.
std::shared_ptr<const ListingFacts> readLogicalVolumes(unsigned long timeoutSeconds, const LogPointer& log);

// `module` asked for the list of logical volumes and did not get it: is its answer the strongest that it could have
// given? Defined with the modules.
bool claimsWithoutList(const CKivDeviceClaimBase& module);

// The text of the exception that is being handled; empty when it has none. Throws std::bad_alloc.
std::string textOfException();

// When a query stops. Threads: `isCancelled` is for any thread, the rest for the query's thread only.
struct QueryLimits {
    std::atomic<bool> isCancelled{false};
    std::optional<std::chrono::steady_clock::time_point> deadline;

    // ClaimBasis::cancelled or deadlinePassed, or nothing while the query may go on.
    std::optional<ClaimBasis> reached() const;
    // The time that is left for a command: whole seconds, from 1 to 600.
    unsigned long commandSeconds() const;
};

// Reads the list at most once, when a module first needs it, and notes which modules did.
//
// Threads: belongs to one thread. Failure: std::bad_alloc; nothing has been read then.
class QueriedVolumes {
public:
    explicit QueriedVolumes(const QueryLimits& limits) : limits(limits) {}

    // While it exists, the device-mapper modules of this thread use `volumes`. Clears the notes of which modules needed
    // the list.
    class InForce {
    public:
        explicit InForce(QueriedVolumes& volumes);
        InForce(const InForce&) = delete;
        InForce& operator=(const InForce&) = delete;
        ~InForce();

    private:
        QueriedVolumes* before;
    };

    // The list that the modules of this thread use; null: their own.
    static QueriedVolumes* inForce();

    // Called by a module that needs the list: is there one? Reads the list if that has not been tried.
    bool areRead(const CKivDeviceClaimBase& module, const LogPointer& log);
    // Whether the list contains `path`; it must have been read.
    bool hold(const std::string& path) const;

    const std::vector<const CKivDeviceClaimBase*>& modulesInNeed() const { return inNeed; }
    // Set when the reading was not begun, or failed, after the query's limits were reached.
    const std::optional<ClaimBasis>& stoppedBy() const { return stop; }
    const std::shared_ptr<const ListingFacts>& facts() const { return listing; }

private:
    const QueryLimits& limits;
    std::shared_ptr<const ListingFacts> listing;
    std::vector<const CKivDeviceClaimBase*> inNeed;
    std::optional<ClaimBasis> stop;
};

}  // namespace kivclaim

#endif
