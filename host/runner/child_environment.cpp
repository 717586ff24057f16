#include "host/runner/child_environment.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace kivclaim::host_internal {

namespace {

// Replaced or left out, however often the process's environment names them.
constexpr std::array<std::string_view, 3> ownVariables{"LC_ALL=", "LANGUAGE=", "LVM_SUPPRESS_FD_WARNINGS="};

char localeSetting[] = "LC_ALL=C";
char descriptorWarningSetting[] = "LVM_SUPPRESS_FD_WARNINGS=1";

bool isOwnVariable(const char* entry)
{
    if (*entry != 'L') {
        return false;
    }
    const std::string_view text(entry);
    return std::any_of(ownVariables.begin(), ownVariables.end(),
                       [&](std::string_view name) { return text.compare(0, name.size(), name) == 0; });
}

std::size_t countEntries()
{
    std::size_t count = 0;
    while (environ != nullptr && environ[count] != nullptr) {
        ++count;
    }
    return count;
}

}  // namespace

std::vector<char*> childEnvironment()
{
    constexpr std::size_t added = 3;  // the two settings and the final null pointer
    std::vector<char*> entries;
    entries.reserve(countEntries() + added);
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        if (!isOwnVariable(*entry)) {
            entries.push_back(*entry);
        }
    }
    entries.push_back(localeSetting);
    entries.push_back(descriptorWarningSetting);
    entries.push_back(nullptr);
    return entries;
}

}  // namespace kivclaim::host_internal
