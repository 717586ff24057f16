#include "claim/kiv_manager_functions.h"

CKivClaimManager* kivclaim_create_claim_manager(unsigned int hostContract, unsigned int* libraryContract)
{
    *libraryContract = kivClaimManagerContract;
    if (hostContract != kivClaimManagerContract) {
        return nullptr;
    }
    try {
        return new CKivClaimManager;
    } catch (...) {
        return nullptr;
    }
}

void kivclaim_delete_claim_manager(CKivClaimManager* manager)
{
    delete manager;
}
