// The smallest useful host: asks the claim manager about every path on its command line.
#include "claim/kiv_claim_manager.h"
#include "host/trace_log.h"

#include <iostream>
#include <memory>

int main(int argc, char** argv)
{
    // Records up to level 2 (errors and warnings) go to standard error.
    const auto log = kivclaim::host::makeTraceLog({kivclaim::host::traceToStandardError(2)});
    const auto manager = std::make_unique<CKivClaimManager>();
    manager->registerTraceLog(log);

    bool allClaimed = true;
    for (int i = 1; i < argc; ++i) {
        unsigned int number = 0;
        const std::string whole = manager->removePartitionSuffix(argv[i], number);
        if (whole.empty()) {
            std::cout << argv[i] << ": not claimed\n";
            allClaimed = false;
        } else {
            std::cout << whole << ' ' << number << '\n';
        }
    }
    return allClaimed ? 0 : 1;
}
