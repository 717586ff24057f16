// A module that breaks the rules, in the way that the environment variable WRONG_MODULE names.
#include "claim/kiv_claim_module_entry.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL;

namespace {

bool is(const char* wrong)
{
    const char* const chosen = std::getenv("WRONG_MODULE");
    return chosen != nullptr && std::string(chosen) == wrong;
}

}  // namespace

class CWrongModule : public CKivDeviceClaimBase {
public:
    CWrongModule()
    {
        if (is("constructor-throws")) {
            throw std::runtime_error("no such luck");
        }
        if (is("constructor-exits")) {
            std::exit(0);
        }
    }
    ~CWrongModule() override
    {
        if (is("destructor-crashes")) {
            std::abort();
        }
    }
    std::vector<std::string> getDeviceClaimStrings() override { return {}; }
    ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) override
    {
        if (is("claim-throws")) {
            throw std::runtime_error("cannot say anything about " + path);
        }
        if (is("claim-crashes")) {
            std::abort();
        }
        if (is("claim-hangs")) {
            std::printf("hangs\n");
            std::fflush(stdout);
            pause();
        }
        if (is("leaves-a-process") && fork() == 0) {
            sleep(50);
            _exit(0);
        }
        if (is("destructor-crashes")) {
            return ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NONE;
        }
        throw 1;
    }
    int isPartition(const std::string& /*path*/) override { return 0; }
    std::string appendPartitionSuffix(const std::string& device, unsigned int /*partition*/) override { return device; }
    std::string removePartitionSuffix(const std::string& device, unsigned int& /*partition*/) override
    {
        return device;
    }
};

extern "C" ZTFI_API CKivDeviceClaimBase* kivclaim_create_claim_module(unsigned int hostContract,
                                                                      unsigned int* moduleContract)
{
    if (is("function-throws")) {
        throw std::runtime_error("no such luck");
    }
    if (is("function-throws-anything")) {
        throw 1;
    }
    if (is("contract-forgotten")) {
        return reinterpret_cast<CKivDeviceClaimBase*>(1);  // must not be used
    }
    return kivclaim::createClaimModule<CWrongModule>(hostContract, moduleContract);
}
