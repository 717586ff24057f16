// Reads the list of logical volumes for a claim query, by the device-mapper module's own code. Not installed.
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

// A device-mapper module that builds its list once and takes notes of what happens.
//
// Threads: belongs to one. Failure: std::bad_alloc.
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
