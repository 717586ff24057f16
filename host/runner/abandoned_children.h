// Children that could not be ended. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_ABANDONED_CHILDREN_H
#define KIVCLAIM_HOST_RUNNER_ABANDONED_CHILDREN_H

#include <sys/types.h>

namespace kivclaim::host_internal {

// A child that is stuck in the kernel outlives its run, and becomes a zombie when the kernel can end it. Nothing
// process-wide may be set to have it collected, so it is remembered here, and each later run collects those that have
// ended meanwhile. Only a child that was started before it was remembered is collected: when the process collects a
// remembered child itself, the system may give its number to another child.
//
// Remembered are the last 64; an older one stays a zombie until the process ends, unless the process collects it.
// While /proc cannot be read, a remembered child stays as it is.
//
// Threads: any. Ownership: keeps no descriptor and no memory. Failure: none.
void rememberAbandonedChild(pid_t process) noexcept;

// Returns at once when nothing is remembered or another thread is collecting.
void collectAbandonedChildren() noexcept;

}  // namespace kivclaim::host_internal

#endif
