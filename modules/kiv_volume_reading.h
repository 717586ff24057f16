// Reads the list of logical volumes for a claim query, with the code of the device-mapper module. Not installed.
#ifndef KIVCLAIM_MODULES_KIV_VOLUME_READING_H
#define KIVCLAIM_MODULES_KIV_VOLUME_READING_H

#include "claim/kiv_queried_volumes.h"
#include "framework/cfiexecpipe.h"
#include "modules/kiv_linux_device_mapper_claim.h"

#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace kivclaim {

// Has a device-mapper module build its list once, and notes what happens.
//
// Threads: belongs to one thread. Failure: std::bad_alloc.
class VolumeReading {
public:
    explicit VolumeReading(const LogPointer& log) { module.registerTraceLog(log); }

    ListingFacts read(unsigned long timeoutSeconds);

    // For the module, while it builds its list: the command failed with this record and output.
    void noteFailure(const ztfi_pdk_4_4::EFiExecPipe& failure, const std::vector<std::string>& output);
    // For the module: it caught the exception that is being handled.
    void noteException() { exception = std::current_exception(); }

private:
    void build(unsigned long timeoutSeconds);
    void classifyException();

    CKivDeviceMapperClaim module;
    ListingFacts facts;
    std::exception_ptr exception;
};

}  // namespace kivclaim

#endif
