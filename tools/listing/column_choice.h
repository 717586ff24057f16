// Which columns of a table to show, as the user names them.
#ifndef KIVCLAIM_TOOLS_LISTING_COLUMN_CHOICE_H
#define KIVCLAIM_TOOLS_LISTING_COLUMN_CHOICE_H

#include "tools/commands.h"

#include <cstddef>
#include <string>
#include <vector>

namespace kivclaim::tools {

// The columns that a table can have; the first few are shown unless others are chosen.
struct KnownColumns {
    std::vector<std::string> names;
    std::size_t shownByDefault = 0;
};

// Places of the chosen columns among the known ones. Throws CommandError for an unknown name.
std::vector<std::size_t> chosenColumns(const KnownColumns& known, const ListOptions& options);

// In capitals or not. Throws CommandError for an unknown name.
std::size_t columnNamed(const KnownColumns& known, const std::string& name);

// "A, B and C"
std::string enumeration(const std::vector<std::string>& names);

// The parts of "a,b,c".
std::vector<std::string> splitAtCommas(const std::string& text);

}  // namespace kivclaim::tools

#endif
