// Every operation of the library, each with the mock machine that it needs and with its right answer.
#ifndef KIVCLAIM_TESTS_FAULTS_OPERATIONS_H
#define KIVCLAIM_TESTS_FAULTS_OPERATIONS_H

#include "claim/kiv_claim_manager.h"
#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "modules/kiv_powerpath_claim.h"
#include "tests/recording_host.h"

#include <functional>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace faults {

// One object of each class, all with the host's log.
struct Library {
    explicit Library(recording::Host& host);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    recording::Host& host;
    CKivClaimManager manager;
    CKivDeviceMapperClaim mapper;
    CKivPowerPathClaim powerPath;
    CNativePathClaim native;
    CZtKIVSupport support;
    std::unique_ptr<CKivDeviceClaimBase> newModule = std::make_unique<CKivPowerPathClaim>();
    std::string name;
    recording::Lines output;
    unsigned int partition = 77;
};

struct Operation {
    std::string name;  // of letters and digits
    std::function<void(recording::Host&)> machine;
    std::function<std::string(Library&)> ask;
    std::string right;
    std::set<std::string> neutral;  // the answers that a failure inside may cause
};

const std::vector<Operation>& allOperations();

inline std::ostream& operator<<(std::ostream& stream, const Operation& operation)
{
    return stream << operation.name;
}

}  // namespace faults

#endif
