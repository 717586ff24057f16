// The bundled host's trace log: its destinations and their levels.
#ifndef KIVCLAIM_HOST_TRACE_LOG_H
#define KIVCLAIM_HOST_TRACE_LOG_H

#include "framework/cfitracelog.h"
#include "framework/ztfi_export.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace spdlog {
class logger;
}

namespace kivclaim::host {

// A log, counted for as long as the pointer holds it.
using TraceLogPointer = ztfi_pdk_4_4::CFiSmartPtr<ztfi_pdk_4_4::CFiTraceLog>;

// A destination of records, with a threshold: records of a higher level are dropped before any formatting.
//
// Threads: several may write to it at the same time.
// Ownership: a value; copies share the open file.
// Failure: when it cannot be written, that is reported once on standard error; its records are lost, and the tracing
// code goes on.
struct ZTFI_API TraceDestination {
    int threshold;                                                     // the highest level that is written
    std::shared_ptr<spdlog::logger> logger;                            // gets the finished lines; if it is empty:
    std::function<void(int level, const std::string& text)> receiver;  // gets the text itself
};

// Each record is one line: local time with milliseconds, level, process and thread, text. Control characters in the
// text are written as \xHH.
//
// Standard error, in colour when it is a terminal.
ZTFI_API TraceDestination traceToStandardError(int threshold);

// A file, to which records are appended. When it would grow beyond `maximumBytes`, it is renamed to NAME.1.EXT and a
// new one is begun; `keptFiles` earlier files are kept. In a process with a limit on file sizes, ignore SIGXFSZ, or the
// limit ends the process instead of being an ordinary write failure.
ZTFI_API TraceDestination traceToFile(int threshold, const std::string& path, std::size_t maximumBytes,
                                      std::size_t keptFiles);

// The system log, under the name `identity`. One such destination at a time: the C library keeps only one name.
ZTFI_API TraceDestination traceToSystemLog(int threshold, const std::string& identity);

// The caller's own function: gets each text as it is, including control characters. It is called on the tracing thread,
// so on several threads at the same time; what it throws is swallowed.
ZTFI_API TraceDestination traceToFunction(int threshold,
                                          std::function<void(int level, const std::string& text)> receiver);

// Creates a log that writes to all of `destinations`. The caller holds the only reference. A CFiTraceLog that was
// created in another way writes nothing.
ZTFI_API TraceLogPointer makeTraceLog(const std::vector<TraceDestination>& destinations);

}  // namespace kivclaim::host

#endif
