// Which file supplies each operation of the host framework. Use it to find out why your own framework is not called. It
// changes no answer and writes no record.
//
// The loader binds the eight operations by name when it loads the claim library, and takes the first definition that it
// finds: docs/host-guide.md says which order wins. A host that is linked with the library calls
// kivclaim::hostOperations(); one that opened it finds the C function by its name with dlsym.
//
// Threads: any. Failure: kivclaim::hostOperations() may throw std::bad_alloc.
#ifndef KIVCLAIM_CLAIM_KIV_HOST_OPERATIONS_H
#define KIVCLAIM_CLAIM_KIV_HOST_OPERATIONS_H

#include "framework/ztfi_export.h"

#include <string>
#include <vector>

// For operation number `index`, 0 to 7, sets `operation` to its name, such as "CFiTraceLog::trace", and `file` to the
// file whose definition this claim library calls, as the loader names it; for the program itself, the name with which
// it was started. `file` is null when the loader knows no file. Both texts are static. Returns 1; for a higher index,
// sets nothing and returns 0.
extern "C" ZTFI_API int kivclaim_host_operation(unsigned int index, const char** operation, const char** file);

// The type of that function.
using KivHostOperation = decltype(kivclaim_host_operation);
// Its name, for dlsym.
inline constexpr char kivHostOperationName[] = "kivclaim_host_operation";

namespace kivclaim {

// An operation and the file that supplies it; empty when the loader knows none.
struct HostOperation {
    std::string name;  // such as "CFiTraceLog::trace"
    std::string file;  // as the loader names it
};

// All eight, in the order of the table in docs/host-guide.md.
inline std::vector<HostOperation> hostOperations(KivHostOperation* ask = kivclaim_host_operation)
{
    std::vector<HostOperation> all;
    const char* name = nullptr;
    const char* file = nullptr;
    for (unsigned int index = 0; ask(index, &name, &file) != 0; ++index) {
        all.push_back({name, file != nullptr ? file : ""});
    }
    return all;
}

}  // namespace kivclaim

#endif
