#include "modules/kiv_volume_reading.h"

#include <cxxabi.h>

#include <new>
#include <typeinfo>

using ztfi_pdk_4_4::EFiExecPipe;

namespace kivclaim {

namespace {

using State = VolumeListing::State;

}  // namespace

std::shared_ptr<const ListingFacts> readLogicalVolumes(unsigned long timeoutSeconds, const LogPointer& log)
{
    return std::make_shared<const ListingFacts>(VolumeReading(log).read(timeoutSeconds));
}

// A derived class may treat a missing list in another way.
bool claimsWithoutList(const CKivDeviceClaimBase& module)
{
    return typeid(module) == typeid(CKivDeviceMapperClaim);
}

ListingFacts VolumeReading::read(unsigned long timeoutSeconds)
{
    facts.when = std::chrono::system_clock::now();
    build(timeoutSeconds);
    // Once the command has failed, that is the reason why the list failed, even if its records then threw.
    if (exception != nullptr && facts.state != State::failed) {
        classifyException();
    }
    if (facts.state != State::failed) {
        facts.volumes.assign(module.logicalVolumePaths.begin(), module.logicalVolumePaths.end());
    }
    return std::move(facts);
}

void VolumeReading::build(unsigned long timeoutSeconds)
{
    facts.state = State::notUnderstood;  // unless the build notes a failed command
    if (module.buildList(timeoutSeconds, this) == 0) {
        facts.state = State::read;
    }
}

void VolumeReading::noteFailure(const EFiExecPipe& failure, const std::vector<std::string>& output)
{
    // Without a log, because the failed listing has already been traced line by line.
    CKivDeviceMapperClaim silent;
    try {
        silent.addLogicalVolumes(output);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const abi::__forced_unwind&) {
        throw;       // thread cancellation must propagate
    } catch (...) {  // NOLINT(bugprone-empty-catch): the output of a failed command may end anywhere
    }
    facts.volumes.assign(silent.logicalVolumePaths.begin(), silent.logicalVolumePaths.end());
    facts.waitStatus = failure.waitStatus;
    facts.message = failure.message;
    facts.state = State::failed;
}

void VolumeReading::classifyException()
{
    try {
        std::rethrow_exception(exception);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const EFiExecPipe&) {
        facts.state = State::notRun;
        facts.message = textOfException();
    } catch (...) {
        facts.state = State::threw;
        facts.message = textOfException();
    }
}

}  // namespace kivclaim
