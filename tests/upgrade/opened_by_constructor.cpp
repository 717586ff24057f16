// The plug-in is opened as hosts had to before it had C functions: by the mangled name of the constructor, into storage
// of the size that the host was compiled with. The environment variable PLUGIN names the file.
#include "tests/any_host/claim_questions.h"

#include <dlfcn.h>

#include <cstdlib>
#include <iostream>
#include <new>

std::unique_ptr<CKivClaimManager> any_host::makeManager()
{
    // As late as the plug-in allows.
    void* const plugin = dlopen(std::getenv("PLUGIN"), RTLD_LAZY | RTLD_LOCAL);
    if (plugin == nullptr) {
        std::cerr << dlerror() << std::endl;
        return nullptr;
    }
    // The default constructor. All else is reached through the slots.
    auto* const construct = reinterpret_cast<void (*)(void*)>(dlsym(plugin, "_ZN16CKivClaimManagerC1Ev"));
    void* const storage = operator new(sizeof(CKivClaimManager));
    construct(storage);
    return std::unique_ptr<CKivClaimManager>(static_cast<CKivClaimManager*>(storage));
}
