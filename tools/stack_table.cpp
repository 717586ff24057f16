#include "tools/stack_table.h"

namespace kivclaim::tools {

const Stack* stackNamed(std::string_view name)
{
    for (const Stack* const stack : stackTable) {
        if (stack->name == name) {
            return stack;
        }
    }
    return nullptr;
}

std::string knownStacks()
{
    std::string names;
    for (const Stack* const stack : stackTable) {
        names += (names.empty() ? "" : ", ") + std::string(stack->name);
    }
    return names + " and " + noStack;
}

}  // namespace kivclaim::tools
