// The host's own code, which is to be tested.
#ifndef MULTIPATH_PATHS_H
#define MULTIPATH_PATHS_H

#include "claim/kiv_claim_manager.h"

#include <string>
#include <vector>

// Those of the paths that are whole multipath devices. Logical volumes, partitions and single disks are none.
std::vector<std::string> multipathDevices(CKivClaimManager& manager, const std::vector<std::string>& paths);

#endif
