// The example host as it was when 1.0.0 was kept: asks about paths, with --module FILE in front also the claim module
// in that file.
#include "claim/kiv_claim_manager.h"
#include "claim/kiv_claim_module_entry.h"
#include "host/trace_log.h"

#include <dlfcn.h>

#include <iostream>
#include <memory>

namespace {

// A new module out of `file`; null when it gives none. The file stays loaded: the module is code in it.
CKivDeviceClaimBase* loadModule(const char* file)
{
    void* const library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        return nullptr;
    }
    auto* const create = reinterpret_cast<KivCreateClaimModule*>(dlsym(library, kivCreateClaimModuleName));
    unsigned int moduleContract = 0;
    return create != nullptr ? create(kivClaimModuleContract, &moduleContract) : nullptr;
}

}  // namespace

int main(int argc, char** argv)
{
    // Records up to level 2 (errors and warnings) go to standard error.
    const auto log = kivclaim::host::makeTraceLog({kivclaim::host::traceToStandardError(2)});
    const auto manager = std::make_unique<CKivClaimManager>();
    manager->registerTraceLog(log);

    int firstPath = 1;
    if (argc > 2 && argv[1] == std::string("--module")) {
        CKivDeviceClaimBase* const module = loadModule(argv[2]);
        if (module == nullptr) {
            std::cerr << argv[2] << ": no claim module for this host\n";
            return 2;
        }
        manager->registerClaimModule(module);  // which owns it from now on
        firstPath = 3;
    }

    bool allClaimed = true;
    for (int i = firstPath; i < argc; ++i) {
        unsigned int number = 0;
        const std::string whole = manager->removePartitionSuffix(argv[i], number);
        if (whole.empty()) {
            std::cout << argv[i] << ": not claimed\n";
            allClaimed = false;
        } else {
            std::cout << whole << ' ' << number << '\n';
        }
    }
    return allClaimed ? 0 : 1;
}
