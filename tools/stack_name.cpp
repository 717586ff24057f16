#include "tools/stack_name.h"

#include <cxxabi.h>

#include <cstdlib>
#include <typeinfo>

namespace kivclaim::tools {

std::string className(const CKivDeviceClaimBase& module)
{
    const char* const mangled = typeid(module).name();
    int status = 0;
    char* const demangled = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
    std::string name = status == 0 ? demangled : mangled;
    std::free(demangled);
    return name;
}

}  // namespace kivclaim::tools
