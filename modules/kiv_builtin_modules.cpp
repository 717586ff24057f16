// The built-in claim modules, in the order in which the claim manager asks them.
#include "claim/kiv_builtin_modules.h"

#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "modules/kiv_powerpath_claim.h"

// Among equal claims the earlier module wins: PowerPath comes before device-mapper, which claims at the same level. No
// other built-in module has native's level, so its place shows only in the order of records and claim strings.
void appendBuiltInClaimModules(std::vector<CKivDeviceClaimBase*>& modules)
{
    modules.push_back(new CNativePathClaim);
    modules.push_back(new CKivPowerPathClaim);
    modules.push_back(new CKivDeviceMapperClaim);
}
