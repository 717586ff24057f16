// Pieces of HTML and SVG. Every foreign text goes through one of these operations.
#ifndef KIVCLAIM_TOOLS_REPORT_MARKUP_H
#define KIVCLAIM_TOOLS_REPORT_MARKUP_H

#include <string>
#include <string_view>
#include <vector>

namespace kivclaim::tools {

// A foreign text as the content of an element, or of an attribute in double quotes: printable, and no markup.
std::string escaped(std::string_view text);

// The same of a list with an item a line: the items remain on lines of their own.
std::string escapedLines(std::string_view text);

// At most `places` characters of a text, an ellipsis in the place of what is left out in its middle. Counts a character
// beyond ASCII as two, for it may be that wide.
std::string shortened(const std::string& text, std::size_t places);

// One word for class attributes: letters, digits and dashes are kept.
std::string className(std::string_view text);

// As a Content-Security-Policy names an inline script or style: 'sha256-...'.
std::string policyHash(const std::string& content);

// <NAME>CONTENT</NAME>, with attributes after the name, if there are any.
std::string element(const std::string& name, const std::string& content);

// A row of a table: the first cell heads the row.
std::string tableRow(const std::string& attributes, const std::vector<std::string>& cells);
// The head of a table; `caption` and columns are markup.
std::string tableHead(const std::string& caption, const std::vector<std::string>& columns);

}  // namespace kivclaim::tools

#endif
