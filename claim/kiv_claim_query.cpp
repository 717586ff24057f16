// The claim query: what it asks, and how it finds out what an answer is based on.
#include "claim/kiv_claim_query.h"

#include "claim/kiv_queried_volumes.h"

#include <cxxabi.h>

#include <algorithm>
#include <new>
#include <utility>

using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NONE;

namespace kivclaim {

// The content of an answer.
struct AnswerFacts {
    std::string path;
    ClaimBasis basis = ClaimBasis::notNeeded;
    ZTFI_DEVICE_CLAIM_LEVEL level = ZTFI_DEVICE_CLAIM_LEVEL_NONE;
    CKivDeviceClaimBase* module = nullptr;
    std::string stack = "none";
    bool isPartition = false;
    std::string wholeDevice;
    unsigned int number = 0;
    std::shared_ptr<const ListingFacts> listing;
    std::string message;
};

namespace {

using State = VolumeListing::State;

// ClaimQuery::cancel may be called in a signal handler, which must not wait for a lock.
static_assert(std::atomic<bool>::is_always_lock_free);

const ListingFacts& unread()
{
    static const ListingFacts facts{State::notRead, {}, {}, {}, {}};
    return facts;
}

// The parts of a raw wait status, as the device-mapper module decodes it.
unsigned int signalPart(const ListingFacts& facts)
{
    return static_cast<std::uint32_t>(facts.waitStatus) & 0x7FU;
}

unsigned int codePart(const ListingFacts& facts)
{
    return (static_cast<std::uint32_t>(facts.waitStatus) >> 8U) & 0xFFU;
}

std::string howItFailed(const VolumeListing& listing)
{
    if (listing.signal() != 0) {
        return "was ended by signal " + std::to_string(listing.signal());
    }
    // The failure left 0 in the record, so there is neither an exit code nor a signal.
    if (listing.exitCode() > 0) {
        return "exited with status " + std::to_string(listing.exitCode());
    }
    return "failed";
}

std::string afterPrinting(std::size_t volumes)
{
    if (volumes == 0) {
        return "";
    }
    return " after printing " + std::to_string(volumes) + (volumes == 1 ? " volume" : " volumes");
}

}  // namespace

VolumeListing::VolumeListing(std::shared_ptr<const ListingFacts> facts) : facts(std::move(facts))
{
    if (this->facts == nullptr) {
        this->facts = std::shared_ptr<const ListingFacts>(std::shared_ptr<void>(), &unread());
    }
}

VolumeListing::State VolumeListing::state() const
{
    return facts->state;
}

std::chrono::system_clock::time_point VolumeListing::when() const
{
    return facts->when;
}

const std::vector<std::string>& VolumeListing::volumes() const
{
    return facts->volumes;
}

bool VolumeListing::holds(const std::string& path) const
{
    return std::binary_search(facts->volumes.begin(), facts->volumes.end(), path);
}

int VolumeListing::exitCode() const
{
    return state() == State::failed && signalPart(*facts) == 0 ? static_cast<int>(codePart(*facts)) : -1;
}

int VolumeListing::signal() const
{
    constexpr unsigned int notEnded = 0x7F;
    return state() == State::failed && signalPart(*facts) != notEnded ? static_cast<int>(signalPart(*facts)) : 0;
}

const std::string& VolumeListing::message() const
{
    return facts->message;
}

std::string VolumeListing::problem() const
{
    switch (state()) {
        case State::notRead:
        case State::read:
            return "";
        case State::failed:
            return "/sbin/lvdisplay " + howItFailed(*this) + afterPrinting(volumes().size());
        case State::notRun:
            return "/sbin/lvdisplay could not be run";
        case State::notUnderstood:
            return "the output of /sbin/lvdisplay was not understood" + afterPrinting(volumes().size());
        case State::threw:
            break;
    }
    return "reading the list of logical volumes threw an exception" + afterPrinting(volumes().size());
}

ClaimAnswer::ClaimAnswer(std::shared_ptr<const AnswerFacts> facts) : facts(std::move(facts))
{
}

const std::string& ClaimAnswer::path() const
{
    return facts->path;
}

ClaimBasis ClaimAnswer::basis() const
{
    return facts->basis;
}

bool ClaimAnswer::isAnswered() const
{
    return basis() == ClaimBasis::notNeeded || basis() == ClaimBasis::listRead || isUnsure();
}

bool ClaimAnswer::isUnsure() const
{
    return basis() == ClaimBasis::listFailed;
}

std::string ClaimAnswer::whyUnsure() const
{
    switch (basis()) {
        case ClaimBasis::notNeeded:
        case ClaimBasis::listRead:
            return "";
        case ClaimBasis::listFailed:
            if (listing().holds(path())) {
                return "The path was printed as a logical volume but is not treated as one, because " +
                       listing().problem() + ".";
            }
            return "The answer would be the same for a logical volume, because " + listing().problem() + ".";
        case ClaimBasis::deadlinePassed:
            return "There is no answer, because the deadline passed.";
        case ClaimBasis::cancelled:
            return "There is no answer, because the query was cancelled.";
        case ClaimBasis::threw:
            break;
    }
    return "There is no answer, because a module or the trace log threw an exception.";
}

ZTFI_DEVICE_CLAIM_LEVEL ClaimAnswer::level() const
{
    return facts->level;
}

CKivDeviceClaimBase* ClaimAnswer::module() const
{
    return facts->module;
}

const std::string& ClaimAnswer::stack() const
{
    return facts->stack;
}

bool ClaimAnswer::isPartition() const
{
    return facts->isPartition;
}

const std::string& ClaimAnswer::wholeDevice() const
{
    return facts->wholeDevice;
}

unsigned int ClaimAnswer::number() const
{
    return facts->number;
}

VolumeListing ClaimAnswer::listing() const
{
    return VolumeListing(facts->listing);
}

const std::string& ClaimAnswer::message() const
{
    return facts->message;
}

// Asks the modules for one query. Threads: the query's only, except for `limits.isCancelled`.
class QueryRun {
public:
    explicit QueryRun(CKivClaimManager& manager) : manager(manager), volumes(limits) {}

    void answer(AnswerFacts& facts, ClaimFacts wanted)
    {
        std::optional<ClaimBasis> stop = limits.reached();
        if (!stop) {
            AnswerFacts asked = facts;
            stop = askModules(asked, wanted);
            if (!stop) {
                facts = std::move(asked);
                return;
            }
            facts.message = std::move(asked.message);
        }
        facts.basis = *stop;
    }

    CKivClaimManager& manager;
    QueryLimits limits;
    QueriedVolumes volumes;

private:
    // Returns why there is no answer; nothing when there is one.
    std::optional<ClaimBasis> askModules(AnswerFacts& facts, ClaimFacts wanted)
    {
        const QueriedVolumes::InForce inForce(volumes);
        try {
            askManagerAndWinner(facts, wanted);
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const abi::__forced_unwind&) {
            throw;  // thread cancellation must propagate
        } catch (...) {
            facts.message = textOfException();
            return ClaimBasis::threw;
        }
        facts.basis = basisOf(facts);
        if (!volumes.modulesInNeed().empty()) {
            facts.listing = volumes.facts();
        }
        return volumes.stoppedBy();
    }

    void askManagerAndWinner(AnswerFacts& facts, ClaimFacts wanted) const
    {
        facts.level = manager.getClaimModule(facts.module, facts.path);
        facts.stack = stackName(facts.module);
        if (facts.module == nullptr || volumes.stoppedBy()) {
            return;
        }
        if (wanted == ClaimFacts::isPartition || wanted == ClaimFacts::all) {
            facts.isPartition = facts.module->isPartition(facts.path) != 0;
        }
        if (wanted == ClaimFacts::wholeDevice || wanted == ClaimFacts::all) {
            facts.wholeDevice = facts.module->removePartitionSuffix(facts.path, facts.number);
        }
    }

    ClaimBasis basisOf(const AnswerFacts& facts) const
    {
        const auto& needed = volumes.modulesInNeed();
        if (needed.empty()) {
            return ClaimBasis::notNeeded;
        }
        if (volumes.facts() != nullptr && volumes.facts()->state == State::read) {
            return ClaimBasis::listRead;
        }
        // A module that lost with its strongest claim loses with a weaker one, too.
        const bool haveAllLost = std::all_of(needed.begin(), needed.end(), [&](const CKivDeviceClaimBase* module) {
            return module != facts.module && isInList(module) && claimsWithoutList(*module);
        });
        return facts.module != nullptr && haveAllLost ? ClaimBasis::notNeeded : ClaimBasis::listFailed;
    }

    // False for a module inside another one, which may have changed the answer.
    bool isInList(const CKivDeviceClaimBase* module) const
    {
        const auto& modules = manager.claimModules();
        return std::find(modules.begin(), modules.end(), module) != modules.end();
    }
};

ClaimQuery::ClaimQuery(CKivClaimManager& manager) : run(std::make_unique<QueryRun>(manager))
{
}

ClaimQuery::~ClaimQuery() = default;

void ClaimQuery::setDeadline(std::chrono::steady_clock::time_point deadline)
{
    run->limits.deadline = deadline;
}

void ClaimQuery::cancel() noexcept
{
    run->limits.isCancelled = true;
}

ClaimAnswer ClaimQuery::ask(const std::string& path, ClaimFacts wanted)
{
    const auto facts = std::make_shared<AnswerFacts>();
    facts->path = path;
    run->answer(*facts, wanted);
    return ClaimAnswer(facts);
}

std::vector<ClaimAnswer> ClaimQuery::askAll(const std::vector<std::string>& paths, ClaimFacts wanted)
{
    std::vector<ClaimAnswer> answers;
    answers.reserve(paths.size());
    for (const std::string& path : paths) {
        answers.push_back(ask(path, wanted));
    }
    return answers;
}

VolumeListing ClaimQuery::listing() const
{
    return VolumeListing(run->volumes.facts());
}

}  // namespace kivclaim
