// How the plug-in writes a trace record. Not installed.
#ifndef KIVCLAIM_CLAIM_KIV_TRACE_H
#define KIVCLAIM_CLAIM_KIV_TRACE_H

#include "framework/cfitracelog.h"

#include <cxxabi.h>

// Writes one record to the object's log: KIV_TRACE(level, format, arguments...). A macro, so that the compiler checks
// the arguments against the format, and so that without a log only the null test is evaluated.
//
// Scope records show a line number. The manager and the device-mapper module pass fixed numbers, which are part of
// their contract. The other modules pass __LINE__: theirs may change with any edit, between releases too, so nothing
// may rely on them.
#define KIV_TRACE(...)                          \
    do {                                        \
        if (this->traceLog.get() != nullptr) {  \
            this->traceLog->trace(__VA_ARGS__); \
        }                                       \
    } while (false)

// The same for an operation that has failed and already has its neutral answer: an exception of the log is dropped,
// except for thread cancellation. Never use it inside a catch block: catching thread cancellation while another
// exception is being handled ends the process.
#define KIV_TRACE_FAILURE(...)                  \
    do {                                        \
        try {                                   \
            KIV_TRACE(__VA_ARGS__);             \
        } catch (const abi::__forced_unwind&) { \
            throw;                              \
        } catch (...) {                         \
        }                                       \
    } while (false)

namespace kivclaim {

constexpr int ERROR = ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_ERROR;
constexpr int WARNING = ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_WARNING;
constexpr int INFORMATION = ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_INFORMATION;
constexpr int DETAIL = ztfi_pdk_4_4::ZTFI_TRACE_LEVEL_DETAIL;

}  // namespace kivclaim

#endif
