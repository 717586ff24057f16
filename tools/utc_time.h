// The present time as recordings, reports and watched changes show it.
#ifndef KIVCLAIM_TOOLS_UTC_TIME_H
#define KIVCLAIM_TOOLS_UTC_TIME_H

#include <ctime>
#include <string>

namespace kivclaim::tools {

// In UTC to the second, such as 2026-01-31T23:59:59Z. Threads: any. Failure: std::bad_alloc.
inline std::string utcNow()
{
    const std::time_t time = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

}  // namespace kivclaim::tools

#endif
