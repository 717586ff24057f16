// The smallest useful host: asks the claim manager about every path on its command line. With --module FILE in front,
// the claim module in that file is asked too.
#include "claim/kiv_claim_manager.h"
#include "claim/kiv_claim_module_entry.h"
#include "host/trace_log.h"

#include <dlfcn.h>

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

// Returns a new module from `file`, or throws an exception with the reason. The file stays loaded, because it contains
// the module's code.
CKivDeviceClaimBase* loadModule(const char* file)
{
    void* const library = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        throw std::runtime_error(dlerror());
    }
    auto* const create = reinterpret_cast<KivCreateClaimModule*>(dlsym(library, kivCreateClaimModuleName));
    if (create == nullptr) {
        throw std::runtime_error(std::string("it has no function ") + kivCreateClaimModuleName);
    }
    unsigned int moduleContract = 0;
    CKivDeviceClaimBase* const module = create(kivClaimModuleContract, &moduleContract);
    // Checked first: a module of another contract must not be used.
    if (moduleContract != kivClaimModuleContract) {
        throw std::runtime_error(kivclaim::contractMismatch(kivClaimModuleContract, moduleContract));
    }
    if (module == nullptr) {
        throw std::runtime_error("its module could not be made: the constructor threw an exception");
    }
    return module;
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
        try {
            manager->registerClaimModule(loadModule(argv[2]));  // which owns it from now on
        } catch (const std::exception& reason) {
            std::cerr << "cannot load the claim module " << argv[2] << ": " << reason.what() << '\n';
            return 2;
        }
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
