// What programs make of the public headers: their own classes, derived from ours.
#include "claim/kiv_claim_manager.h"
#include "framework/cfiexecpipe.h"

class SiteLog : public ztfi_pdk_4_4::CFiTraceLog {};

class SiteRunner : public ztfi_pdk_4_4::CFiExecPipePosix {
public:
    SiteRunner() : CFiExecPipePosix(1) {}
};

class SiteMessages : public ztfi_pdk_4_4::CFiErrorManager {};

class SiteModule : public CKivDeviceClaimBase {};

class SiteManager : public CKivClaimManager {};

void makeEach();

void makeEach()
{
    const SiteLog log{};
    const SiteRunner runner{};
    const SiteMessages messages{};
    const SiteManager manager{};
    const ztfi_pdk_4_4::EFiExecPipe failure{};
    static_cast<void>(failure);
}
