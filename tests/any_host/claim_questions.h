// A program that asks a claim manager gets these from the host that it is built for.
#ifndef KIVCLAIM_TESTS_ANY_HOST_CLAIM_QUESTIONS_H
#define KIVCLAIM_TESTS_ANY_HOST_CLAIM_QUESTIONS_H

#include "claim/kiv_claim_manager.h"

#include <functional>
#include <memory>
#include <string>

namespace any_host {

// The host's trace log, which passes each record on.
ztfi_pdk_4_4::CFiSmartPtr<ztfi_pdk_4_4::CFiTraceLog> makeLog(
    std::function<void(int level, const std::string& text)> receiver);

// A manager from the plug-in; null, with the reason on standard error, when the plug-in cannot be loaded.
std::unique_ptr<CKivClaimManager> makeManager();

}  // namespace any_host

#endif
