// The claim manager's way to the built-in modules, which it must not know by name. Not installed.
#ifndef KIVCLAIM_CLAIM_KIV_BUILTIN_MODULES_H
#define KIVCLAIM_CLAIM_KIV_BUILTIN_MODULES_H

#include "claim/kiv_device_claim_base.h"

#include <vector>

// Creates the built-in modules and appends them to `modules`, in the order in which they are asked. Defined with the
// modules. When one cannot be created, the exception leaves this function with the earlier ones in `modules`.
void appendBuiltInClaimModules(std::vector<CKivDeviceClaimBase*>& modules);

#endif
