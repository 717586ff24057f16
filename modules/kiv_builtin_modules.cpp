// The built-in claim modules, in the order in which the claim manager asks them.
#include "claim/kiv_builtin_modules.h"

#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "modules/kiv_powerpath_claim.h"

// The order settles ties, the earlier module wins: PowerPath stands before device-mapper because both claim at the
// same level, and native disks come first because everything else outweighs them.
void appendBuiltInClaimModules(std::vector<CKivDeviceClaimBase*>& modules)
{
    modules.push_back(new CNativePathClaim);
    modules.push_back(new CKivPowerPathClaim);
    modules.push_back(new CKivDeviceMapperClaim);
}
