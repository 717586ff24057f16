#include "tests/second_host/memory_log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace second_host {

MemoryLog::MemoryLog(Receiver receiver) : receiver(std::move(receiver))
{
}

MemoryLog::~MemoryLog() = default;

}  // namespace second_host

void ztfi_pdk_4_4::CFiTraceLog::trace(int level, const char* format, ...)
{
    std::string text(4096, '\0');
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    text.resize(length < 0 ? 0 : std::min(static_cast<std::size_t>(length), text.size() - 1));
    if (const auto* const log = dynamic_cast<second_host::MemoryLog*>(this)) {
        log->receiver(level, text);
    }
}
