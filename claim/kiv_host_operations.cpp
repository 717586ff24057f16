// Which file supplies each operation of the host framework.
#include "claim/kiv_host_operations.h"

#include <dlfcn.h>

#include <cstddef>

namespace {

constexpr std::size_t count = 8;

}  // namespace

// The operations under the names that the loader binds; C++ could name no address of a constructor. An address that is
// taken here is bound as this library's calls are, whatever other libraries of the process got.
#define KIV_BOUND(function, symbol) extern "C" __attribute__((visibility("default"))) void function() __asm__(symbol)
#define KIV_STRING "NSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
KIV_BOUND(kivBoundTrace, "_ZN12ztfi_pdk_4_411CFiTraceLog5traceEiPKcz");
KIV_BOUND(kivBoundRunner, "_ZN12ztfi_pdk_4_416CFiExecPipePosixC1Ei");
KIV_BOUND(kivBoundExec, "_ZN12ztfi_pdk_4_415CFiExecPipeBase4ExecE" KIV_STRING "RSt6vectorIS6_SaIS6_EES6_mS6_S6_S6_");
KIV_BOUND(kivBoundFind, "_ZN12ztfi_pdk_4_413CFiStringTool4findERKSt6vectorI" KIV_STRING "SaIS7_EERKS7_Rmb");
KIV_BOUND(kivBoundTrim, "_ZN12ztfi_pdk_4_413CFiStringTool4trimERK" KIV_STRING "S8_");
KIV_BOUND(kivBoundTokenize, "_ZN12ztfi_pdk_4_413CFiStringTool8tokenizeERK" KIV_STRING "S8_");
KIV_BOUND(kivBoundToFramework, "_ZN12ztfi_pdk_4_413CFiStringTool8str2tstrERK" KIV_STRING);
KIV_BOUND(kivBoundFromFramework, "_ZN12ztfi_pdk_4_413CFiStringTool8tstr2strB5cxx11ERK15ACE_String_BaseIcE");

namespace {

struct BoundOperation {
    const char* name;
    void (*function)();
};

constexpr BoundOperation operations[count] = {
    {"CFiTraceLog::trace", kivBoundTrace},
    {"CFiExecPipePosix::CFiExecPipePosix", kivBoundRunner},
    {"CFiExecPipeBase::Exec", kivBoundExec},
    {"CFiStringTool::find", kivBoundFind},
    {"CFiStringTool::trim", kivBoundTrim},
    {"CFiStringTool::tokenize", kivBoundTokenize},
    {"CFiStringTool::str2tstr", kivBoundToFramework},
    {"CFiStringTool::tstr2str", kivBoundFromFramework},
};

}  // namespace

int kivclaim_host_operation(unsigned int index, const char** operation, const char** file)
{
    if (index >= count) {
        return 0;
    }
    Dl_info place{};
    const bool isKnown = dladdr(reinterpret_cast<const void*>(operations[index].function), &place) != 0;
    *operation = operations[index].name;
    *file = isKnown ? place.dli_fname : nullptr;
    return 1;
}
