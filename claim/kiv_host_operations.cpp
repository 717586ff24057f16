// Which file supplies each operation of the host framework.
#include "claim/kiv_host_operations.h"

#include "claim/kiv_host_symbols.h"

#include <dlfcn.h>

#include <iterator>

// By symbol names, because C++ cannot take the address of a constructor. The loader binds these addresses like this
// library's calls, whatever other libraries of the process are bound to.
#define KIV_DECLARE(function, name, symbol) \
    extern "C" __attribute__((visibility("default"))) void function() __asm__(symbol);
KIV_HOST_SYMBOLS(KIV_DECLARE)

namespace {

struct BoundOperation {
    const char* name;
    void (*function)();
};

#define KIV_BOUND(function, name, symbol) {name, function},
constexpr BoundOperation operations[] = {KIV_HOST_SYMBOLS(KIV_BOUND)};

}  // namespace

int kivclaim_host_operation(unsigned int index, const char** operation, const char** file)
{
    if (index >= std::size(operations)) {
        return 0;
    }
    Dl_info place{};
    const bool isKnown = dladdr(reinterpret_cast<const void*>(operations[index].function), &place) != 0;
    *operation = operations[index].name;
    *file = isKnown ? place.dli_fname : nullptr;
    return 1;
}
