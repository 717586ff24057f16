// The command that lists the logical volumes. The answers of the built-in modules depend on no other.
#ifndef KIVCLAIM_TOOLS_LIST_COMMAND_H
#define KIVCLAIM_TOOLS_LIST_COMMAND_H

namespace kivclaim::tools {

constexpr char listCommand[] = "/sbin/lvdisplay";

}  // namespace kivclaim::tools

#endif
