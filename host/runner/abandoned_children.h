// Children that could not be ended. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_ABANDONED_CHILDREN_H
#define KIVCLAIM_HOST_RUNNER_ABANDONED_CHILDREN_H

#include <sys/types.h>

namespace kivclaim::host_internal {

// A child that is stuck in the kernel outlives its run, and becomes a zombie when the kernel can end it. A library must
// not change process-wide settings to have it collected, so it is remembered here, and each later run collects those
// that have ended meanwhile. A child is collected only if it was started before it was remembered: when the process
// collects a remembered child itself, the system may give its process ID to another child.
//
// The last 64 children are remembered; an older one stays a zombie until the process collects it or ends. While /proc
// cannot be read, no child is collected.
//
// Threads: any. Ownership: keeps no descriptor and no memory. Failure: none.
void rememberAbandonedChild(pid_t process) noexcept;

// Returns at once when nothing is remembered or another thread is collecting.
void collectAbandonedChildren() noexcept;

}  // namespace kivclaim::host_internal

#endif
