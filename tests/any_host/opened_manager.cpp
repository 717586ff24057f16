// The plug-in is opened while the program runs: the file that the environment variable PLUGIN names.
#include "claim/kiv_manager_functions.h"
#include "tests/any_host/claim_questions.h"

#include <dlfcn.h>

#include <cstdlib>
#include <iostream>

std::unique_ptr<CKivClaimManager> any_host::makeManager()
{
    // As late as the plug-in allows.
    void* const plugin = dlopen(std::getenv("PLUGIN"), RTLD_LAZY | RTLD_LOCAL);
    if (plugin == nullptr) {
        std::cerr << dlerror() << std::endl;
        return nullptr;
    }
    // All else is reached through the slots.
    auto* const create = reinterpret_cast<KivCreateClaimManager*>(dlsym(plugin, kivCreateClaimManagerName));
    unsigned int libraryContract = 0;
    return std::unique_ptr<CKivClaimManager>(create(kivClaimManagerContract, &libraryContract));
}
