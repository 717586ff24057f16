// How the command calls the stack that a claim module serves.
#ifndef KIVCLAIM_TOOLS_STACK_NAME_H
#define KIVCLAIM_TOOLS_STACK_NAME_H

#include "claim/kiv_device_claim_base.h"

#include <string>

namespace kivclaim::tools {

// "powerpath", …, the name of its class for a module of somebody else's, "none" for null.
std::string stackName(const CKivDeviceClaimBase* module);

// The name of its class.
std::string className(const CKivDeviceClaimBase& module);

}  // namespace kivclaim::tools

#endif
