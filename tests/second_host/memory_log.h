// A second host framework, which shares only the framework's headers with the bundled one: the plug-in must work with
// either. This header declares its additions to the framework's operations.
#ifndef KIVCLAIM_TESTS_SECOND_HOST_MEMORY_LOG_H
#define KIVCLAIM_TESTS_SECOND_HOST_MEMORY_LOG_H

#include "framework/cfitracelog.h"

#include <functional>
#include <string>

namespace second_host {

using Receiver = std::function<void(int level, const std::string& text)>;

// A trace log that passes each record to `receiver`.
class MemoryLog : public ztfi_pdk_4_4::CFiTraceLog {
public:
    explicit MemoryLog(Receiver receiver);
    ~MemoryLog() override;

    Receiver receiver;
};

}  // namespace second_host

#endif
