// Answers about many paths, each with what it is based on.
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
    // When lvdisplay was started. A volume that was created later may be missing.
    std::chrono::system_clock::time_point when() const;
    // The paths of the printed volumes, as the device-mapper module builds them, sorted, each once. Answers use them
    // only if the list was read; otherwise they are what lvdisplay printed although it failed.
    const std::vector<std::string>& volumes() const;
    // True when `path` is exactly one of volumes().
    bool holds(const std::string& path) const;
    // The exit code of a failed lvdisplay; -1 when it did not exit, and in every other state.
    int exitCode() const;
    // The signal that ended a failed lvdisplay; 0 when none did, and in every other state.
    int signal() const;
    // The message of the host's runner or of the exception, unescaped; may be empty. With the bundled runner it ends
    // with the end of lvdisplay's standard error. Make it printable before showing it: the tool chose its bytes.
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

// What an answer is based on. The last three mean that there is no answer.
enum class ClaimBasis {
    notNeeded,       // not on the list of logical volumes, or it would be the same whatever the list holds
    listRead,        // on the list, which was read
    listFailed,      // on a list that could not be read: the answer would be the same for a logical volume
    deadlinePassed,  // no answer: the deadline passed first
    cancelled,       // no answer: the query was cancelled first
    threw            // no answer: a module or the host's trace log threw an exception
};

// The questions about a path besides the claim.
enum class ClaimFacts {
    claimOnly,    // nothing
    isPartition,  // whether it is a partition
    wholeDevice,  // its whole device and partition number
    all
};

// The answer about one path.
//
// Threads: a value; copies may be used by several threads at once.
// Ownership: copies share what they hold. The manager owns the module.
// Failure: none of the operations fails, but those that return a new string may throw std::bad_alloc.
class ZTFI_API ClaimAnswer {
public:
    // The path as it was given to the query.
    const std::string& path() const;
    // See ClaimBasis.
    ClaimBasis basis() const;
    // False when there is no answer; everything below is neutral then: no module, level 0, empty strings.
    bool isAnswered() const;
    // True when the answer needs a list that could not be read.
    bool isUnsure() const;
    // Why the answer is unsure or missing, in one English sentence; empty for a sure answer. The texts are listed in
    // docs/host-guide.md; none contains text of the path or of a tool.
    std::string whyUnsure() const;

    // The answer of CKivClaimManager::claim if its list of logical volumes were read at this moment.
    ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL level() const;
    // The module that won; null when none claims the path. Valid for as long as the manager.
    CKivDeviceClaimBase* module() const;
    // The stackName of that module.
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
    // If an exception prevented the answer, its text, unescaped; otherwise, or if it had no text, empty.
    const std::string& message() const;

private:
    friend class ClaimQuery;
    ZTFI_INTERNAL explicit ClaimAnswer(std::shared_ptr<const AnswerFacts> facts);

    std::shared_ptr<const AnswerFacts> facts;
};

// Asks the modules of a claim manager about one path or many, with one reading of the list of logical volumes.
//
// What for: make one query for each reading, set a deadline if you want one, ask, destroy it. The manager's modules are
// asked as by its own requests: same order, same rule, same records. Only the list of logical volumes differs. The
// query does not use, fill or clear the device-mapper module's own list. It reads the list itself when the first module
// needs it, once, with any host framework, and keeps the result, also a failure, for its lifetime. So it answers like a
// manager whose module has just read the list; where the module's own list is out of date, the query is right.
//
// Threads: only one thread at a time may use the query and its manager; `cancel` is for any thread. While a query asks,
// every device-mapper module on this thread uses the query's list, also one inside a module of the host. A module or a
// trace log that is called meanwhile must not use the same query.
// Ownership: borrows the manager, which must outlive it. Answers outlive both, except the module that they point to.
// Failure: a failed listing is part of the answer, and so is an exception of a module or of a trace log. Only
// std::bad_alloc and the cancellation of the thread (pthread_cancel) leave an operation; the query can be used again
// afterwards, and keeps the list if it was read.
//
// Blocking: as the manager's requests, but with one run of lvdisplay at most. It runs through the host's
// CFiExecPipePosix, with the trace log of the module that needs it. Its time limit is the number of seconds until the
// deadline, rounded up, at least 1, at most 600. The host decides how fast the tool ends then, and whether it can be
// ended earlier.
class ZTFI_API ClaimQuery {
public:
    // Has no deadline yet. Asks and runs nothing.
    explicit ClaimQuery(CKivClaimManager& manager);
    ClaimQuery(const ClaimQuery&) = delete;
    ClaimQuery& operator=(const ClaimQuery&) = delete;
    ~ClaimQuery();

    // After `deadline`, no further path is asked about and lvdisplay is not started. A path whose listing failed after
    // it has no answer, and that failure is not kept: with a later deadline the query continues, and lvdisplay may run
    // again.
    void setDeadline(std::chrono::steady_clock::time_point deadline);

    // From now on, no further path is asked about and lvdisplay is not started; this cannot be undone. May be called on
    // any thread and in signal handlers, while the query exists. It does not end a running tool: only the host's runner
    // can.
    void cancel() noexcept;

    // Asks about one path.
    ClaimAnswer ask(const std::string& path, ClaimFacts wanted = ClaimFacts::all);
    // Asks about each path in turn: one answer for each, in the same order, also for those that were not reached.
    std::vector<ClaimAnswer> askAll(const std::vector<std::string>& paths, ClaimFacts wanted = ClaimFacts::all);

    // The list; State::notRead until a path needs it.
    VolumeListing listing() const;

private:
    std::unique_ptr<QueryRun> run;
};

// The stack of a module: "device-mapper", "powerpath" or "native"; for any other module, also one derived from those,
// the name of its class, or "unnamed" when that was compiled with -fno-rtti; "none" for null. Threads: any. Failure:
// std::bad_alloc.
ZTFI_API std::string stackName(const CKivDeviceClaimBase* module);

}  // namespace kivclaim

#endif
