#include "tools/listing/column_choice.h"

#include <strings.h>

#include <algorithm>
#include <numeric>
#include <sstream>

namespace kivclaim::tools {

std::vector<std::string> splitAtCommas(const std::string& text)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');) {
        parts.push_back(part);
    }
    return parts;
}

std::string enumeration(const std::vector<std::string>& names)
{
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
    }
    return text;
}

std::size_t columnNamed(const KnownColumns& known, const std::string& name)
{
    const auto found = std::find_if(known.names.begin(), known.names.end(),
                                    [&](const std::string& one) { return strcasecmp(one.c_str(), name.c_str()) == 0; });
    if (found == known.names.end()) {
        throw CommandError("'" + name + "' is no column; the columns are " + enumeration(known.names));
    }
    return static_cast<std::size_t>(found - known.names.begin());
}

std::vector<std::size_t> chosenColumns(const KnownColumns& known, const ListOptions& options)
{
    const bool adds = options.columns.compare(0, 1, "+") == 0;
    std::vector<std::size_t> columns;
    if (options.allColumns || options.columns.empty() || adds) {
        columns.resize(options.allColumns ? known.names.size() : known.shownByDefault);
        std::iota(columns.begin(), columns.end(), 0);
    }
    for (const std::string& name : splitAtCommas(options.columns.substr(adds ? 1 : 0))) {
        columns.push_back(columnNamed(known, name));
    }
    return columns;
}

}  // namespace kivclaim::tools
