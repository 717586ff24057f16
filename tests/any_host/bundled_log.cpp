#include "host/trace_log.h"
#include "tests/any_host/claim_questions.h"

#include <utility>

ztfi_pdk_4_4::CFiSmartPtr<ztfi_pdk_4_4::CFiTraceLog> any_host::makeLog(
    std::function<void(int level, const std::string& text)> receiver)
{
    return kivclaim::host::makeTraceLog(
        {kivclaim::host::traceToFunction(ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_DETAIL, std::move(receiver))});
}
