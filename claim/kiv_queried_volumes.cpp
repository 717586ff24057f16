#include "claim/kiv_queried_volumes.h"

#include "framework/cfiexecpipe.h"

#include <algorithm>
#include <exception>

namespace kivclaim {

namespace {

constexpr std::chrono::seconds longestCommand{600};
constexpr std::chrono::seconds shortestCommand{1};

// In each thread's static storage: otherwise the first access on a thread allocates it, and the C library ends the
// process when that allocation fails.
[[gnu::tls_model("initial-exec")]] thread_local QueriedVolumes* volumesInForce = nullptr;

}  // namespace

std::string textOfException()
{
    try {
        throw;
    } catch (const ztfi_pdk_4_4::EFiExecPipe& failure) {
        return failure.message;
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (...) {
        return {};
    }
}

std::optional<ClaimBasis> QueryLimits::reached() const
{
    if (isCancelled) {
        return ClaimBasis::cancelled;
    }
    if (deadline && std::chrono::steady_clock::now() >= *deadline) {
        return ClaimBasis::deadlinePassed;
    }
    return std::nullopt;
}

// Rounded up, so that a command that runs into its limit ends after the deadline and is not taken for a failed one.
unsigned long QueryLimits::commandSeconds() const
{
    if (!deadline) {
        return longestCommand.count();
    }
    // Compared before rounding, which would overflow for time_point::max().
    const auto left =
        std::min<std::chrono::steady_clock::duration>(*deadline - std::chrono::steady_clock::now(), longestCommand);
    return std::max(std::chrono::ceil<std::chrono::seconds>(left), shortestCommand).count();
}

QueriedVolumes::InForce::InForce(QueriedVolumes& volumes) : before(volumesInForce)
{
    volumes.inNeed.clear();
    volumes.stop.reset();
    volumesInForce = &volumes;
}

QueriedVolumes::InForce::~InForce()
{
    volumesInForce = before;
}

QueriedVolumes* QueriedVolumes::inForce()
{
    return volumesInForce;
}

bool QueriedVolumes::areRead(const CKivDeviceClaimBase& module, const LogPointer& log)
{
    inNeed.push_back(&module);
    if (listing == nullptr && !stop) {
        stop = limits.reached();
        if (stop) {
            return false;
        }
        auto reading = readLogicalVolumes(limits.commandSeconds(), log);
        // A command that was ended by the deadline or by cancelling says nothing about the machine.
        if (reading->state != VolumeListing::State::read) {
            stop = limits.reached();
        }
        if (!stop) {
            listing = std::move(reading);
        }
    }
    return listing != nullptr && listing->state == VolumeListing::State::read;
}

bool QueriedVolumes::hold(const std::string& path) const
{
    return std::binary_search(listing->volumes.begin(), listing->volumes.end(), path);
}

}  // namespace kivclaim
