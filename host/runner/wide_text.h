// Text in wide characters. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_WIDE_TEXT_H
#define KIVCLAIM_HOST_RUNNER_WIDE_TEXT_H

#include <string>
#include <string_view>

namespace kivclaim::host_internal {

// Decodes `text` as UTF-8, whatever the process's locale is. A byte that is not UTF-8 becomes the four characters \xHH:
// the text of a failure must be readable whatever a tool wrote.
//
// Threads: any. Failure: only running out of memory, as std::bad_alloc.
std::wstring wideText(std::string_view text);

}  // namespace kivclaim::host_internal

#endif
