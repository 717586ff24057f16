// How a claim module in a file of its own is made, and how a host gets it out of that file.
//
// The file is a shared library with one C function, kivclaim_create_claim_module. Whoever writes a module derives a
// class from CKivDeviceClaimBase, puts
//
//     KIV_CLAIM_MODULE_ENTRY(CNvmeClaim)
//
// into one of the library's sources, outside any namespace, and links kivclaim::kivclaim and no host framework: what
// the module calls of it, such as CFiTraceLog::trace, comes from the process that loads the file. The name of the
// class is what `kivclaim` shows as the stack's. examples/nvme_module is a whole module.
//
// A host loads the file (RTLD_NOW, so that a missing symbol is found at once), looks the function up by
// `kivCreateClaimModuleName`, calls it with `kivClaimModuleContract` and registers the result. Loading runs the file's
// code with all the rights of the process: load only what is trusted like the host itself.
//
// Threads: the function belongs to the thread that drives the manager; it may be called any number of times.
// Ownership: each call makes a new module, which is the caller's until a claim manager owns it. The file stays loaded
// for as long as any of its modules lives, or a host could call code that is gone; never closing it is simplest.
// Failure: null; no exception may leave the function.
#ifndef KIVCLAIM_CLAIM_KIV_CLAIM_MODULE_ENTRY_H
#define KIVCLAIM_CLAIM_KIV_CLAIM_MODULE_ENTRY_H

#include "claim/kiv_device_claim_base.h"
#include "framework/ztfi_export.h"

#include <string>

// The contract between a module and the host that loads it, as its compiler sees it: the slots of CKivDeviceClaimBase
// and its bases, the size and layout of the framework's types, and the string type of the C++ library. The upper bits
// count the releases that changed any of the first; the low byte is the size of std::string, which differs between
// libstdc++'s two string types and other libraries. A module works with hosts of the same number only. It grows with
// every new slot or field, also at the end: a module of before does not have it.
inline constexpr unsigned int kivClaimModuleContract = (1U << 8) | sizeof(std::string);

// What a module's file exports; defined by KIV_CLAIM_MODULE_ENTRY. `hostContract` is the caller's
// kivClaimModuleContract; the function writes its own to `moduleContract`, in every case. Returns a new module, or null
// when the two differ, or when the module could not be made.
extern "C" ZTFI_API CKivDeviceClaimBase* kivclaim_create_claim_module(unsigned int hostContract,
                                                                      unsigned int* moduleContract);

// The type of that function.
using KivCreateClaimModule = decltype(kivclaim_create_claim_module);
// Its name, for dlsym.
inline constexpr char kivCreateClaimModuleName[] = "kivclaim_create_claim_module";

namespace kivclaim {

// The function's body: makes a `Module` with its default constructor, and turns what that throws into null.
template <class Module>
CKivDeviceClaimBase* createClaimModule(unsigned int hostContract, unsigned int* moduleContract) noexcept
{
    *moduleContract = kivClaimModuleContract;
    if (hostContract != kivClaimModuleContract) {
        return nullptr;
    }
    try {
        return new Module;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace kivclaim

// Defines the function for the class `Module`, which must be complete and have a default constructor.
// NOLINTBEGIN(bugprone-macro-parentheses): a function, no expression
#define KIV_CLAIM_MODULE_ENTRY(Module)                                                                  \
    extern "C" ZTFI_API CKivDeviceClaimBase* kivclaim_create_claim_module(unsigned int hostContract,    \
                                                                          unsigned int* moduleContract) \
    {                                                                                                   \
        return kivclaim::createClaimModule<Module>(hostContract, moduleContract);                       \
    }
// NOLINTEND(bugprone-macro-parentheses)

#endif
