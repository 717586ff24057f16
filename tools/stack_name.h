// How the command calls a claim module and the stack that it serves.
#ifndef KIVCLAIM_TOOLS_STACK_NAME_H
#define KIVCLAIM_TOOLS_STACK_NAME_H

#include "claim/kiv_claim_query.h"  // stackName

#include <string>

namespace kivclaim::tools {

using kivclaim::stackName;

// The name of its class.
std::string className(const CKivDeviceClaimBase& module);

}  // namespace kivclaim::tools

#endif
