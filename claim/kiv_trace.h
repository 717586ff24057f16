// How the plug-in writes a trace record. Not installed.
#ifndef KIVCLAIM_CLAIM_KIV_TRACE_H
#define KIVCLAIM_CLAIM_KIV_TRACE_H

#include "framework/cfitracelog.h"

// Writes one record to the object's log: KIV_TRACE(level, format, arguments...). A macro, so that the compiler checks
// the arguments against the format and nothing but the null test is evaluated while no log is registered.
#define KIV_TRACE(...)                          \
    do {                                        \
        if (this->traceLog.get() != nullptr) {  \
            this->traceLog->trace(__VA_ARGS__); \
        }                                       \
    } while (false)

namespace kivclaim {

constexpr int ERROR = ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_ERROR;
constexpr int WARNING = ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_WARNING;
constexpr int INFORMATION = ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_INFORMATION;
constexpr int DETAIL = ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_DETAIL;

}  // namespace kivclaim

#endif
