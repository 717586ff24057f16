#include "tools/listing/list_form.h"

#include "tools/listing/column_choice.h"
#include "tools/stack_table.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <numeric>

namespace kivclaim::tools {

namespace {

bool isSet(const char* variable)
{
    const char* const value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

bool isDumbTerminal()
{
    const char* const terminal = std::getenv("TERM");
    return terminal == nullptr || std::strcmp(terminal, "dumb") == 0;
}

// What the user asks for counts more than what the environment says.
bool wantsColors(const std::string& when)
{
    if (when == "always" || when == "never") {
        return when == "always";
    }
    if (when != "auto") {
        throw CommandError("'" + when + "' is no time to show colors; the times are auto, always and never");
    }
    return isatty(STDOUT_FILENO) != 0 && !isSet("NO_COLOR") && !isDumbTerminal();
}

}  // namespace

TableForm formOf(const ListOptions& options, const std::string& name)
{
    TableForm form;
    form.name = name;
    form.json = options.json;
    form.raw = options.raw;
    form.pairs = options.pairs;
    form.noHeadings = options.noHeadings;
    form.tree = options.tree || options.inverse;
    form.colors = wantsColors(options.color) && !options.json && !options.raw && !options.pairs;
    return form;
}

std::vector<std::string> chosenStacks(const ListOptions& options, const std::vector<std::string>& known)
{
    std::vector<std::string> chosen = splitAtCommas(options.stacks);
    for (const std::string& stack : chosen) {
        if (std::find(known.begin(), known.end(), stack) == known.end()) {
            throw CommandError("'" + stack + "' is no stack; the stacks are " + enumeration(known));
        }
    }
    return chosen;
}

void addDoubtColumn(const ListOptions& options, const std::vector<Doubt>& doubts, std::size_t column,
                    std::vector<std::size_t>& columns)
{
    if (!doubts.empty() && options.columns.empty() && !options.allColumns) {
        columns.push_back(column);
    }
}

const char* colorOf(const std::string& stack)
{
    const Stack* const known = stackNamed(stack);
    return known != nullptr ? known->color : nullptr;
}

std::vector<std::size_t> sortedPlaces(const std::vector<std::string>& keys)
{
    std::vector<std::size_t> places(keys.size());
    std::iota(places.begin(), places.end(), 0);
    std::stable_sort(places.begin(), places.end(), [&](std::size_t one, std::size_t other) {
        return strverscmp(keys[one].c_str(), keys[other].c_str()) < 0;
    });
    return places;
}

}  // namespace kivclaim::tools
