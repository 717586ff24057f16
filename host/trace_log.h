// The bundled host's trace log: where it writes, and how much.
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

// One place that records go to, with a threshold: records of a higher level are dropped before any formatting.
//
// Threads: several may write through it at once.
// Ownership: a value; copies share the open file.
// Failure: a destination that cannot be written says so once on standard error; its records are lost, and whoever
// traces never notices.
struct ZTFI_API TraceDestination {
    int threshold;                                                     // the highest level that is written
    std::shared_ptr<spdlog::logger> logger;                            // takes finished texts; or, when empty:
    std::function<void(int level, const std::string& text)> receiver;  // is handed the text itself
};

// Each record is one line: local time with milliseconds, level, process and thread, text. Control characters in the
// text are written as \xHH.
//
// Standard error, in colour when it is a terminal.
ZTFI_API TraceDestination traceToStandardError(int threshold);

// A file, appended to. In a process with a limit on file sizes, SIGXFSZ must be ignored for the limit to be a failure
// like any other. When it would grow beyond `maximumBytes` it is renamed to NAME.1.EXT and begun anew; `keptFiles` of
// such earlier files are kept.
ZTFI_API TraceDestination traceToFile(int threshold, const std::string& path, std::size_t maximumBytes,
                                      std::size_t keptFiles);

// The system log, under the name `identity`. One such destination at a time: the C library keeps only one name.
ZTFI_API TraceDestination traceToSystemLog(int threshold, const std::string& identity);

// The caller's own function: gets each text as it is, control characters included. Called on the tracing thread, by
// several threads at once; what it throws is swallowed.
ZTFI_API TraceDestination traceToFunction(int threshold,
                                          std::function<void(int level, const std::string& text)> receiver);

// Makes a log that writes to all of `destinations`. The caller holds the only reference. A CFiTraceLog that was made
// in another way writes nowhere.
ZTFI_API TraceLogPointer makeTraceLog(const std::vector<TraceDestination>& destinations);

}  // namespace kivclaim::host

#endif
