// The names of the stacks in answers.
#include "claim/kiv_claim_query.h"
#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "modules/kiv_powerpath_claim.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

namespace {

std::string className(const std::type_info& type)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                           &std::free);
    return status == 0 ? name.get() : type.name();
}

// A class that was compiled with -fno-rtti has no type information, and typeid would crash: its place in front of the
// slots, as in the C++ ABI of all supported platforms, is null.
bool hasTypeInformation(const CKivDeviceClaimBase& module)
{
    const auto* const slots = *reinterpret_cast<const void* const* const*>(&module);
    return slots[-1] != nullptr;
}

}  // namespace

std::string kivclaim::stackName(const CKivDeviceClaimBase* module)
{
    if (module == nullptr) {
        return "none";
    }
    if (!hasTypeInformation(*module)) {
        return "unnamed";
    }
    const std::type_info& type = typeid(*module);
    if (type == typeid(CKivDeviceMapperClaim)) {
        return "device-mapper";
    }
    if (type == typeid(CKivPowerPathClaim)) {
        return "powerpath";
    }
    if (type == typeid(CNativePathClaim)) {
        return "native";
    }
    return className(type);
}
