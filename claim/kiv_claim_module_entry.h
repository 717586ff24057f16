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

// The next four: how a compiler was told to deviate from what kivclaim is compiled with. Set for nothing else: the
// numbers of ordinary hosts and modules are those of earlier releases. With -fno-rtti.
inline constexpr unsigned int kivContractNoRtti = 1U << 16;
// With -D_GLIBCXX_DEBUG.
inline constexpr unsigned int kivContractDebugMode = 1U << 17;
// With -fno-exceptions.
inline constexpr unsigned int kivContractNoExceptions = 1U << 18;
// With -D_GLIBCXX_USE_CXX11_ABI=0.
inline constexpr unsigned int kivContractOldStrings = 1U << 19;
// Those of the program that includes this header.
inline constexpr unsigned int kivContractDeviations = 0
#ifndef __cpp_rtti
                                                      | kivContractNoRtti
#endif
#ifdef _GLIBCXX_DEBUG
                                                      | kivContractDebugMode
#endif
#ifndef __cpp_exceptions
                                                      | kivContractNoExceptions
#endif
#if defined(_GLIBCXX_USE_CXX11_ABI) && _GLIBCXX_USE_CXX11_ABI == 0
                                                      | kivContractOldStrings
#endif
    ;

// The contract between a module and the host that loads it, as its compiler sees it: the slots of CKivDeviceClaimBase
// and its bases, the size and layout of the framework's types, and how both were compiled. A module works with hosts of
// the same number only.
//
// Bits 0 to 7: the size of std::string, which differs between C++ libraries. Bits 8 to 15: counts the releases that
// changed slots or layout, see docs/contract.md. Bits 16 and up: the deviations above.
inline constexpr unsigned int kivClaimModuleContract = (1U << 8) | sizeof(std::string) | kivContractDeviations;

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

// Why a module of one contract cannot work in a host of another, to be put after "the module is refused, because";
// empty when it can. Threads: any. Failure: std::bad_alloc.
inline std::string contractMismatch(unsigned int hostContract, unsigned int moduleContract)
{
    constexpr struct {
        unsigned int bit;
        const char* option;
    } deviations[] = {{kivContractNoRtti, "-fno-rtti"},
                      {kivContractDebugMode, "-D_GLIBCXX_DEBUG"},
                      {kivContractNoExceptions, "-fno-exceptions"},
                      {kivContractOldStrings, "-D_GLIBCXX_USE_CXX11_ABI=0"}};
    for (const auto& deviation : deviations) {
        if (((hostContract ^ moduleContract) & deviation.bit) != 0) {
            const bool isModules = (moduleContract & deviation.bit) != 0;
            return std::string("it was compiled ") + (isModules ? "with " : "without ") + deviation.option +
                   " and the host " + (isModules ? "without" : "with");
        }
    }
    if (hostContract == moduleContract) {
        return "";
    }
    return "it was built against contract " + std::to_string(moduleContract) + ", and the host is of contract " +
           std::to_string(hostContract);
}

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
