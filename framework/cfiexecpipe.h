// The host's command runner. The plug-in runs every external command with it.
#ifndef KIVCLAIM_FRAMEWORK_CFIEXECPIPE_H
#define KIVCLAIM_FRAMEWORK_CFIEXECPIPE_H

#include "framework/cfitracelog.h"
#include "framework/ztfi_export.h"

#include <cstdint>
#include <string>
#include <vector>

namespace ztfi_pdk_4_4 {

// Why a command could not be run, or how it failed. A plain value, thrown by value.
class ZTFI_API EFiExecPipe {
public:
    std::string message{};         // what went wrong
    std::wstring wideMessage{};    // the same text in wide characters
    std::int32_t errorNumber = 0;  // the runner's error code, an errno where there is one
    std::int64_t waitStatus = 0;   // the child's raw wait status
};

// Runs one command and collects its output.
//
// Threads: one runner belongs to one thread; separate runners may run at once.
// Ownership: created on the stack for one command, given the caller's trace log, destroyed afterwards.
// Failure: a command that ran and failed gives a non-zero result and a record; one that could not be run may be
// thrown as EFiExecPipe.
class ZTFI_API CFiExecPipeBase : public CFiTraceable {
public:
    // Slots 1 and 2 are those of CFiTraceable.
    ~CFiExecPipeBase() override = default;

    // Runs `command` (program path and arguments, separated by one or more blanks) to its end and appends each line of
    // its standard output to `output`, in order. `timeoutSeconds` is the limit for the whole run. The meaning of the
    // other texts is the host's. Returns 0 when the command ran and succeeded. Supplied by the host.
    int Exec(std::string command, std::vector<std::string>& output, std::string, unsigned long timeoutSeconds,
             std::string, std::string, std::string);

    // The record of the last run that failed; untouched by a run that succeeds.
    const EFiExecPipe& getLastFailure() const { return lastFailure; }

protected:
    EFiExecPipe lastFailure{};  // filled by Exec
};

// The runner for POSIX systems. The host defines what the number selects; the plug-in passes 1.
class ZTFI_API CFiExecPipePosix : public CFiExecPipeBase {
public:
    // Supplied by the host.
    CFiExecPipePosix(int);
    ~CFiExecPipePosix() override = default;
};

}  // namespace ztfi_pdk_4_4

#endif
