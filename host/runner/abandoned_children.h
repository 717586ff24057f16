// Children that could not be ended. Private to the bundled host.
#ifndef KIVCLAIM_HOST_RUNNER_ABANDONED_CHILDREN_H
#define KIVCLAIM_HOST_RUNNER_ABANDONED_CHILDREN_H

#include <sys/types.h>

namespace kivclaim::host_internal {

// A child that is stuck in the kernel outlives its run, and becomes a zombie when the kernel lets go of it. Nothing
// process-wide may be set to have it collected, so it is remembered here, and each later run collects those that have
// ended meanwhile. A remembered child is known by its process number and its start time, so that a number that the
// system gave to another child of the process is never collected by mistake.
//
// Remembered are the last 64; an older one, or one whose start time cannot be read (no /proc), stays a zombie until
// the process ends, unless the process collects it.
//
// Threads: any. Ownership: keeps no descriptor and no memory. Failure: none.
void rememberAbandonedChild(pid_t process) noexcept;

// Costs one look at a counter while there are none. Does nothing while another thread is at it.
void collectAbandonedChildren() noexcept;

}  // namespace kivclaim::host_internal

#endif
