// The modules that the claim managers of this process own, so that none is registered twice. Not installed.
#ifndef KIVCLAIM_CLAIM_KIV_OWNED_MODULES_H
#define KIVCLAIM_CLAIM_KIV_OWNED_MODULES_H

#include "claim/kiv_device_claim_base.h"

namespace kivclaim {

// Threads: any, without a lock, because managers have none. It is not detected when two threads register one module at
// the same moment. Failure: none.

// Whether a manager has noted the module as its own.
bool isOwnedModule(const CKivDeviceClaimBase* module);

// When memory has run out, nothing is noted.
void noteOwnedModule(const CKivDeviceClaimBase* module);

// Call it before the manager deletes the module: the next one may have the same address. Does nothing for a built-in
// module.
void forgetOwnedModule(const CKivDeviceClaimBase* module);

// Whether the object is a variable of a function that runs on this thread.
bool isOnThisThreadsStack(const void* object);

}  // namespace kivclaim

#endif
