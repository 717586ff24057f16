// Which modules the claim managers of this process got registered, so that none is taken twice. Not installed.
#ifndef KIVCLAIM_CLAIM_KIV_OWNED_MODULES_H
#define KIVCLAIM_CLAIM_KIV_OWNED_MODULES_H

#include "claim/kiv_device_claim_base.h"

namespace kivclaim {

// Threads: any, without a lock, since managers have none. Two threads that register one module at the same moment are
// not told apart. Failure: none.

// Whether a manager owns the module, which it noted.
bool isOwnedModule(const CKivDeviceClaimBase* module);

// Without memory, nothing is noted.
void noteOwnedModule(const CKivDeviceClaimBase* module);

// Before its manager deletes it: the next module may have the same address. Does nothing for a built-in one.
void forgetOwnedModule(const CKivDeviceClaimBase* module);

// Whether the object is a variable of a function that runs on this thread.
bool isOnThisThreadsStack(const void* object);

}  // namespace kivclaim

#endif
