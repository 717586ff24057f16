#include "tools/stack_name.h"

#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "modules/kiv_powerpath_claim.h"

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

std::string stackName(const CKivDeviceClaimBase* module)
{
    if (module == nullptr) {
        return "none";
    }
    const std::type_info& type = typeid(*module);
    if (type == typeid(CKivPowerPathClaim)) {
        return "powerpath";
    }
    if (type == typeid(CKivDeviceMapperClaim)) {
        return "device-mapper";
    }
    if (type == typeid(CNativePathClaim)) {
        return "native";
    }
    return className(*module);
}

}  // namespace kivclaim::tools
