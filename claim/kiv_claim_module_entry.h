// How to write a claim module in its own file, and how a host loads it from that file.
//
// The file is a shared library with one C function, kivclaim_create_claim_module. To write a module, derive a class
// from CKivDeviceClaimBase, put
//
//     KIV_CLAIM_MODULE_ENTRY(CNvmeClaim)
//
// into one of the library's sources, outside any namespace, and link kivclaim::kivclaim but no host framework: the
// framework's operations, such as CFiTraceLog::trace, come from the process that loads the file. `kivclaim` shows the
// name of the class as that of the stack. examples/nvme_module is a complete module.
//
// A host loads the file (RTLD_NOW, so that a missing symbol is found at once), looks the function up by
// `kivCreateClaimModuleName`, calls it with `kivClaimModuleContract` and registers the result. Loading runs the file's
// code with all privileges of the process: load only files that are trusted like the host itself.
//
// Threads: call the function on the thread that uses the manager, any number of times.
// Ownership: each call creates a new module, which the caller owns until a claim manager does. Keep the file loaded as
// long as any of its modules exists, or the host calls code that is gone; never closing it is simplest.
// Failure: null; no exception may leave the function.
#ifndef KIVCLAIM_CLAIM_KIV_CLAIM_MODULE_ENTRY_H
#define KIVCLAIM_CLAIM_KIV_CLAIM_MODULE_ENTRY_H

#include "claim/kiv_device_claim_base.h"
#include "framework/ztfi_export.h"

#include <string>

// The next four bits are set for compiler options that differ from those of kivclaim. They are 0 otherwise, so that
// ordinary hosts and modules have the numbers of earlier releases. With -fno-rtti.
inline constexpr unsigned int kivContractNoRtti = 1U << 16;
// With -D_GLIBCXX_DEBUG.
inline constexpr unsigned int kivContractDebugMode = 1U << 17;
// With -fno-exceptions.
inline constexpr unsigned int kivContractNoExceptions = 1U << 18;
// With -D_GLIBCXX_USE_CXX11_ABI=0.
inline constexpr unsigned int kivContractOldStrings = 1U << 19;
// The options of the program that includes this header.
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

// The number of the contract between a module and the host that loads it: the slots of CKivDeviceClaimBase and its
// bases, the size and layout of the framework's types, and the compiler options. A module works only with hosts of the
// same number.
//
// Bits 0 to 7: the size of std::string, which differs between C++ libraries. Bits 8 to 15: a count; increase it for
// every new slot or field, because older modules lack it, see docs/contract.md. Bits 16 and up: the options above.
inline constexpr unsigned int kivClaimModuleContract = (1U << 8) | sizeof(std::string) | kivContractDeviations;

// The function that a module's file exports; KIV_CLAIM_MODULE_ENTRY defines it. `hostContract` is the caller's
// kivClaimModuleContract; the function always writes its own to `moduleContract`. Returns a new module, or null when
// the two differ or the module could not be created.
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

// The function's body: creates a `Module` with its default constructor, and returns null if that throws.
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
