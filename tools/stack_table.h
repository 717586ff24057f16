// The stacks that the command knows by name: the one place for what it calls them and how it shows them.
#ifndef KIVCLAIM_TOOLS_STACK_TABLE_H
#define KIVCLAIM_TOOLS_STACK_TABLE_H

#include <string>
#include <string_view>

namespace kivclaim::tools {

struct Stack {
    const char* name;          // as kivclaim::stackName says it of the stack's built-in module
    std::string_view pattern;  // what that module finds in the paths that it claims
    const char* color;         // by libsmartcols' name
};

constexpr Stack powerPathStack = {"powerpath", "/dev/emcpower", "magenta"};
constexpr Stack deviceMapperStack = {"device-mapper", "/dev/mapper/", "green"};
constexpr Stack nativeStack = {"native", "/dev/sd", "cyan"};

// What the command calls the stack of a path that no module claims.
constexpr char noStack[] = "none";

// In the order in which the library asks their modules after the native one, which is the weakest and comes last here.
constexpr const Stack* stackTable[] = {&powerPathStack, &deviceMapperStack, &nativeStack};

// Null for a name that is none of theirs, such as that of a module of the user's own.
const Stack* stackNamed(std::string_view name);

// "powerpath, device-mapper, native and none", for messages.
std::string knownStacks();

}  // namespace kivclaim::tools

#endif
