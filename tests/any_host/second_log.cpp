#include "tests/any_host/claim_questions.h"
#include "tests/second_host/memory_log.h"

#include <utility>

ztfi_pdk_4_4::CFiSmartPtr<ztfi_pdk_4_4::CFiTraceLog> any_host::makeLog(
    std::function<void(int level, const std::string& text)> receiver)
{
    ztfi_pdk_4_4::CFiSmartPtr<ztfi_pdk_4_4::CFiTraceLog> log;
    log.acquire(new second_host::MemoryLog(std::move(receiver)));
    return log;
}
