// C functions that create and delete a claim manager, for hosts that open the library with dlopen. They are found by
// their plain names; the manager itself is then used through its slots, as claim/kiv_claim_manager.h declares them:
//
//     void* const library = dlopen("libkivclaim.so.1", RTLD_NOW);
//     auto* const create = reinterpret_cast<KivCreateClaimManager*>(dlsym(library, kivCreateClaimManagerName));
//     unsigned int libraryContract = 0;
//     CKivClaimManager* const manager = create(kivClaimManagerContract, &libraryContract);
//
// Threads: any. Ownership: the caller owns the manager and deletes it with kivclaim_delete_claim_manager or with
// delete, before closing the library. Failure: null. No exception leaves the functions; one that a module's destructor
// throws ends the process, as in a plain delete.
#ifndef KIVCLAIM_CLAIM_KIV_MANAGER_FUNCTIONS_H
#define KIVCLAIM_CLAIM_KIV_MANAGER_FUNCTIONS_H

#include "claim/kiv_claim_manager.h"
#include "claim/kiv_claim_module_entry.h"
#include "framework/ztfi_export.h"

// The contract between a host and the library that it opens: the same number, with the same rules, as for modules.
inline constexpr unsigned int kivClaimManagerContract = kivClaimModuleContract;

// `hostContract` is the caller's kivClaimManagerContract. The function always writes the library's own to
// `libraryContract`. Returns a new manager, or null when the two differ or no manager could be created.
// kivclaim::contractMismatch(libraryContract, hostContract) says why they differ.
extern "C" ZTFI_API CKivClaimManager* kivclaim_create_claim_manager(unsigned int hostContract,
                                                                    unsigned int* libraryContract);

// Deletes a manager that the other function created; null is ignored.
extern "C" ZTFI_API void kivclaim_delete_claim_manager(CKivClaimManager* manager);

// The type of the function that creates a manager.
using KivCreateClaimManager = decltype(kivclaim_create_claim_manager);
// The type of the function that deletes one.
using KivDeleteClaimManager = decltype(kivclaim_delete_claim_manager);
// The name of the function that creates a manager, for dlsym.
inline constexpr char kivCreateClaimManagerName[] = "kivclaim_create_claim_manager";
// The name of the function that deletes one, for dlsym.
inline constexpr char kivDeleteClaimManagerName[] = "kivclaim_delete_claim_manager";

#endif
