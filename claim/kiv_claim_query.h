// Answers about many paths that say what they rest on.
#ifndef KIVCLAIM_CLAIM_KIV_CLAIM_QUERY_H
#define KIVCLAIM_CLAIM_KIV_CLAIM_QUERY_H

#include "claim/kiv_claim_manager.h"
#include "claim/kiv_device_claim_base.h"
#include "framework/ztfi_export.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kivclaim {

class QueryRun;
struct AnswerFacts;
struct ListingFacts;

// One reading of the list of logical volumes, which is what /sbin/lvdisplay prints.
//
// Threads: a value; copies may be used by several threads at once.
// Ownership: copies share what they hold.
// Failure: none of the operations fails, but those that return a new string may throw std::bad_alloc.
class ZTFI_API VolumeListing {
public:
    // How the reading ended.
    enum class State {
        notRead,        // not tried, or ended by the query's deadline or by cancelling
        read,           // lvdisplay succeeded and its output was understood
        failed,         // lvdisplay failed: see exitCode and signal
        notRun,         // the host's runner threw EFiExecPipe: mostly, lvdisplay could not be run at all
        notUnderstood,  // lvdisplay succeeded and its output was not understood
        threw           // any other exception was thrown, by the runner or while its output was read
    };

    // See State.
    State state() const;
    // When lvdisplay was started. A volume made later may be missing.
    std::chrono::system_clock::time_point when() const;
    // The paths of the volumes that were printed, as the device-mapper module puts them together, sorted, each once.
    // Only those of a list that was read count for answers; any others tell what lvdisplay printed although it failed.
    const std::vector<std::string>& volumes() const;
    // True when `path` is to the letter one of volumes().
    bool holds(const std::string& path) const;
    // The exit code of a failed lvdisplay; -1 when it did not exit, and in every other state.
    int exitCode() const;
    // The signal that ended a failed lvdisplay; 0 when none did, and in every other state.
    int signal() const;
    // What the host's runner or the exception said, as it came; may be empty. With the bundled runner it ends with the
    // last words of lvdisplay's standard error. Make it printable before showing it: the tool chose its bytes.
    const std::string& message() const;
    // What went wrong, to be put after "because": "/sbin/lvdisplay exited with status 5 after printing 3 volumes".
    // Empty for a list that was read, and for one that was not tried. The texts are listed in docs/host-guide.md.
    std::string problem() const;

private:
    friend class ClaimAnswer;
    friend class ClaimQuery;
    ZTFI_INTERNAL explicit VolumeListing(std::shared_ptr<const ListingFacts> facts);

    std::shared_ptr<const ListingFacts> facts;
};

// What an answer rests on. The last three are no answers.
enum class ClaimBasis {
    notNeeded,       // not on the list of logical volumes, or it would be the same whatever the list holds
    listRead,        // on the list, which was read
    listFailed,      // on a list that could not be read: the answer would be the same for a logical volume
    deadlinePassed,  // no answer: the deadline came first
    cancelled,       // no answer: the query was cancelled first
    threw            // no answer: a module or the host's trace log threw an exception
};

// What is asked about a path besides the claim.
enum class ClaimFacts {
    claimOnly,    // nothing
    isPartition,  // whether it is a partition
    wholeDevice,  // its whole device and partition number
    all
};

// The answer about one path.
//
// Threads: a value; copies may be used by several threads at once.
// Ownership: copies share what they hold. The module stays the manager's.
// Failure: none of the operations fails, but those that return a new string may throw std::bad_alloc.
class ZTFI_API ClaimAnswer {
public:
    // The path, as it was asked about.
    const std::string& path() const;
    // See ClaimBasis.
    ClaimBasis basis() const;
    // False when there is no answer; everything below is neutral then: no module, level 0, empty strings.
    bool isAnswered() const;
    // True when the answer rests on a list that could not be read.
    bool isUnsure() const;
    // Why the answer is unsure or missing, in one English sentence; empty for a sure answer. The texts are listed in
    // docs/host-guide.md; none holds bytes of the path or of a tool.
    std::string whyUnsure() const;

    // As CKivClaimManager::claim answers with a list of logical volumes that was read just now.
    ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL level() const;
    // The module that won; null when none claims the path. Valid for as long as the manager.
    CKivDeviceClaimBase* module() const;
    // What stackName says of that module.
    const std::string& stack() const;

    // As CKivClaimManager::isPartition answers; false when it was not asked.
    bool isPartition() const;
    // The whole device, as CKivClaimManager::removePartitionSuffix answers; empty when it was not asked and for a path
    // that none claims.
    const std::string& wholeDevice() const;
    // The partition number that goes with it; 0 when the module gives none.
    unsigned int number() const;

    // The list that a module needed for this answer; State::notRead when none did.
    VolumeListing listing() const;
    // The text of the exception in place of an answer, as it came; empty when there was none or it had no text.
    const std::string& message() const;

private:
    friend class ClaimQuery;
    ZTFI_INTERNAL explicit ClaimAnswer(std::shared_ptr<const AnswerFacts> facts);

    std::shared_ptr<const AnswerFacts> facts;
};

// Asks the modules of a claim manager about one path or many, by one look at the system.
//
// What for: make one for a look at the system, set a deadline if there is one, ask, drop it. The manager's modules are
// asked as by its own requests: same order, same rule, same records. Only the list of logical volumes is another one.
// The device-mapper module's own is neither filled nor used nor emptied; instead the query reads the list when the
// first module needs it, once, with any host framework, and keeps it until it ends, after a failure too. So its answers
// are those of a manager whose module has just read the list, and where the module's own list is older, the query is
// right.
//
// Threads: one thread at a time drives the query and its manager; `cancel` is for any thread. While a query asks,
// every device-mapper module on this thread answers from the query's list, also one inside a module of the host's.
// A module or a trace log that is called meanwhile must not ask the same query.
// Ownership: borrows the manager, which must outlive it. Answers outlive both, but not what `module` points to.
// Failure: a failed listing is part of the answer, and so is an exception of a module or of a trace log. Only
// std::bad_alloc leaves an operation, and the cancellation of the thread (pthread_cancel): the query can be asked
// again then, and keeps the list if it was read.
//
// Blocking: as the manager's requests, but for one run of lvdisplay. It runs through the host's CFiExecPipePosix
// with the trace log of the module that needs it, and with the seconds until the deadline as its limit: whole ones
// rounded up, at least 1, at most 600. How fast the tool ends then is up to the host, and so is ending it earlier.
class ZTFI_API ClaimQuery {
public:
    // Without a deadline. Nothing is asked and nothing is run yet.
    explicit ClaimQuery(CKivClaimManager& manager);
    ClaimQuery(const ClaimQuery&) = delete;
    ClaimQuery& operator=(const ClaimQuery&) = delete;
    ~ClaimQuery();

    // No path is begun and lvdisplay is not started after `deadline`. A path whose listing failed after it has no
    // answer, and that failure is forgotten: with a later deadline the query goes on, and lvdisplay may run once more.
    void setDeadline(std::chrono::steady_clock::time_point deadline);

    // From now on no path is begun and lvdisplay is not started; there is no way back. For any thread and for signal
    // handlers, while the query exists. A running tool is not ended by it: that is up to the host's runner.
    void cancel() noexcept;

    // Asks about one path.
    ClaimAnswer ask(const std::string& path, ClaimFacts wanted = ClaimFacts::all);
    // Asks about each path in turn: one answer for each, in the same order. Those that were not reached say so.
    std::vector<ClaimAnswer> askAll(const std::vector<std::string>& paths, ClaimFacts wanted = ClaimFacts::all);

    // The list as far as it is known: State::notRead until a path needed it.
    VolumeListing listing() const;

private:
    std::unique_ptr<QueryRun> run;
};

// The stack that a module serves: "device-mapper", "powerpath" or "native"; the name of its class for any other module,
// one derived from those included; "unnamed" for a class that was compiled with -fno-rtti; "none" for null.
// Threads: any. Failure: std::bad_alloc.
ZTFI_API std::string stackName(const CKivDeviceClaimBase* module);

}  // namespace kivclaim

#endif
