// The claim manager: selection of the strongest claim, and forwarding to the module that made it.
#include "claim/kiv_claim_manager.h"

#include "claim/kiv_builtin_modules.h"
#include "claim/kiv_owned_modules.h"
#include "claim/kiv_trace.h"

using kivclaim::ERROR;
using ztfi_pdk_4_4::CFiContextSingletonAllocator;
using ztfi_pdk_4_4::CFiSmartPtr;
using ztfi_pdk_4_4::CFiTraceLog;
using ztfi_pdk_4_4::CFiTraceLogFunction;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NONE;

namespace {

// Written out instead of __FILE__, so that records show the same name wherever and however the source is compiled.
constexpr char sourceFile[] = "claim/kiv_claim_manager.cpp";

// The line numbers in scope records. They never change: readers of traces recognise the operations by them.
constexpr int lineOfConstructor = 25;
constexpr int lineOfGetClaimModule = 48;
constexpr int lineOfRegisterTraceLog = 69;
constexpr int lineOfRegisterClaimModule = 81;
constexpr int lineOfGetDeviceClaimStrings = 92;
constexpr int lineOfClaim = 109;
constexpr int lineOfIsPartition = 117;
constexpr int lineOfAppendPartitionSuffix = 132;
constexpr int lineOfRemovePartitionSuffix = 144;

}  // namespace

CKivClaimManager::CKivClaimManager()
{
    const CFiTraceLogFunction scope(traceLog, "CKivClaimManager", lineOfConstructor, sourceFile);
    // Deliberate: modules created before a failure are not deleted. Pinned by
    // ClaimManager.AFailedConstructionLeaksTheEarlierModules.
    appendBuiltInClaimModules(modules);
}

CKivClaimManager::~CKivClaimManager()
{
    // A module's destructor may register another module, which is deleted as well.
    for (std::size_t i = 0; i < modules.size(); ++i) {  // NOLINT(modernize-loop-convert)
        kivclaim::forgetOwnedModule(modules[i]);
        delete modules[i];
    }
}

void CKivClaimManager::registerClaimModule(CKivDeviceClaimBase* module)
{
    constexpr char operation[] = "CKivClaimManager::registerClaimModule";
    const CFiTraceLogFunction scope(traceLog, "registerClaimModule", lineOfRegisterClaimModule, sourceFile);
    if (module == nullptr) {
        return;
    }
    if (kivclaim::isOnThisThreadsStack(module)) {
        KIV_TRACE(ERROR, "%s: refused a module on the stack, which no manager can delete; make it with new", operation);
        return;
    }
    if (kivclaim::isOwnedModule(module)) {
        KIV_TRACE(ERROR, "%s: refused a module that a manager owns already; register each module once", operation);
        return;
    }
    module->registerTraceLog(traceLog);
    modules.push_back(module);
    kivclaim::noteOwnedModule(module);
}

void CKivClaimManager::registerTraceLog(const CFiSmartPtr<CFiTraceLog, CFiContextSingletonAllocator<CFiTraceLog>>& log)
{
    // The scope holds the log that was registered before, so both of its records go to that one.
    const CFiTraceLogFunction scope(traceLog, "registerTraceLog", lineOfRegisterTraceLog, sourceFile);
    traceLog = log;
    // A module registered during this loop already got the log from registerClaimModule.
    const std::size_t count = modules.size();
    for (std::size_t i = 0; i < count; ++i) {
        modules[i]->registerTraceLog(log);
    }
}

// Deliberate: later modules come first. Pinned by ClaimManager.ClaimStringsOfLaterModulesComeFirst.
std::vector<std::string> CKivClaimManager::getDeviceClaimStrings()
{
    std::vector<std::string> merged;
    const CFiTraceLogFunction scope(traceLog, "getDeviceClaimStrings", lineOfGetDeviceClaimStrings, sourceFile);
    // A module that is registered meanwhile is asked from the next time on.
    const std::size_t count = modules.size();
    for (std::size_t i = 0; i < count; ++i) {
        const std::vector<std::string> block = modules[i]->getDeviceClaimStrings();
        merged.insert(merged.begin(), block.begin(), block.end());
    }
    return merged;
}

ZTFI_DEVICE_CLAIM_LEVEL CKivClaimManager::claim(const std::string& path)
{
    const CFiTraceLogFunction scope(traceLog, "claim", lineOfClaim, sourceFile);
    CKivDeviceClaimBase* module = nullptr;
    return getClaimModule(module, path);
}

int CKivClaimManager::isPartition(const std::string& path)
{
    const CFiTraceLogFunction scope(traceLog, "isPartition", lineOfIsPartition, sourceFile);
    CKivDeviceClaimBase* module = nullptr;
    getClaimModule(module, path);
    return module != nullptr ? module->isPartition(path) : 0;
}

// Deliberate: an unclaimed path gives an empty string, not the path. Pinned by
// ClaimManager.AnUnclaimedPathGetsTheNeutralAnswers.
std::string CKivClaimManager::appendPartitionSuffix(const std::string& device, unsigned int partition)
{
    std::string result;
    const CFiTraceLogFunction scope(traceLog, "appendPartitionSuffix", lineOfAppendPartitionSuffix, sourceFile);
    CKivDeviceClaimBase* module = nullptr;
    getClaimModule(module, device);
    if (module != nullptr) {
        result = module->appendPartitionSuffix(device, partition);
    }
    return result;
}

std::string CKivClaimManager::removePartitionSuffix(const std::string& device, unsigned int& partition)
{
    std::string result;
    const CFiTraceLogFunction scope(traceLog, "removePartitionSuffix", lineOfRemovePartitionSuffix, sourceFile);
    CKivDeviceClaimBase* module = nullptr;
    getClaimModule(module, device);
    if (module != nullptr) {
        result = module->removePartitionSuffix(device, partition);
    }
    return result;
}

// Deliberate: nothing is forwarded to the modules. Pinned by ClaimManager.ClearingTheListOnTheManagerReachesNoModule.
void CKivClaimManager::clearLvmDeviceNameList()
{
}

ZTFI_DEVICE_CLAIM_LEVEL CKivClaimManager::getClaimModule(CKivDeviceClaimBase*& module, const std::string& path)
{
    const CFiTraceLogFunction scope(traceLog, "getClaimModule", lineOfGetClaimModule, sourceFile);
    ZTFI_DEVICE_CLAIM_LEVEL best = ZTFI_DEVICE_CLAIM_LEVEL_NONE;
    // No early exit: every module is asked, and the first with the highest level wins. A module that is registered
    // meanwhile is asked from the next question on.
    const std::size_t count = modules.size();
    for (std::size_t i = 0; i < count; ++i) {
        CKivDeviceClaimBase* const candidate = modules[i];
        const ZTFI_DEVICE_CLAIM_LEVEL level = candidate->claim(path);
        if (level > best) {
            module = candidate;
            best = level;
        }
    }
    return best;
}
