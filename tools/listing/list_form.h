// What the tables of devices and of LUNs have in common: how they are sorted, printed and coloured.
#ifndef KIVCLAIM_TOOLS_LISTING_LIST_FORM_H
#define KIVCLAIM_TOOLS_LISTING_LIST_FORM_H

#include "tools/commands.h"
#include "tools/table.h"
#include "tools/unsure.h"

#include <string>
#include <vector>

namespace kivclaim::tools {

// Throws CommandError for an unknown time to show colors.
TableForm formOf(const ListOptions& options, const std::string& name);

// Those that --stacks names, which `known` holds. Throws CommandError for any other.
std::vector<std::string> chosenStacks(const ListOptions& options, const std::vector<std::string>& known);

// Where the user chose no columns, a table with unsure answers has one more.
void addDoubtColumn(const ListOptions& options, const std::vector<Doubt>& doubts, std::size_t column,
                    std::vector<std::size_t>& columns);

// The color of a stack's name; null for one that has none.
const char* colorOf(const std::string& stack);
constexpr char colorOfMarks[] = "red";

// The places of `keys` in natural order (sda9 before sda10); equal ones stay as they were.
std::vector<std::size_t> sortedPlaces(const std::vector<std::string>& keys);

}  // namespace kivclaim::tools

#endif
