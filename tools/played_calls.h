// What the functions do that replace the C library's. Apart from played_machine.h, because the file
// that defines open() must not see <fcntl.h>: with the checks of distributions, that defines it, too.
#ifndef KIVCLAIM_TOOLS_PLAYED_CALLS_H
#define KIVCLAIM_TOOLS_PLAYED_CALLS_H

struct utsname;

namespace kivclaim::tools {

// Whether the code at `caller` sees a played machine, and not the one that this process runs on.
bool isPlayedTo(const void* caller) noexcept;

// Of the innermost played machine, which must be there. They fail like the functions of these names, with errno.
int playedOpen(const char* path, int flags) noexcept;
int playedAccess(const char* path, int mode) noexcept;
int playedUname(utsname& system) noexcept;

}  // namespace kivclaim::tools

#endif
