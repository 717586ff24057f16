// A table on standard output, in the forms that people and scripts read.
#ifndef KIVCLAIM_TOOLS_TABLE_H
#define KIVCLAIM_TOOLS_TABLE_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct libscols_line;
struct libscols_table;

namespace kivclaim::tools {

enum class ColumnType {
    text,
    number,
    flag,       // "1" or "0"; true or false in JSON
    rightText,  // aligned like a number: sizes with a suffix
    list        // a text that ListText made: an array in JSON, one item a line in a table
};

struct TableColumn {
    const char* name;
    ColumnType type;
};

struct TableForm {
    std::string name;  // of the list of lines in JSON
    bool json = false;
    bool raw = false;
    bool pairs = false;  // NAME="text" for each cell
    bool noHeadings = false;
    bool tree = false;    // the first column shows the nesting of the lines; not in raw or pairs
    bool colors = false;  // show those of the cells
};

// The text of a cell in a column of lists. A value; threads: one at a time. Failure: std::bad_alloc.
class ListText {
public:
    void add(std::string_view item);
    std::string take() { return std::move(text); }

private:
    std::string text;
};

// A line that others may be nested in; by default none. Threads: one. Ownership: borrows from its table.
class TableLine {
public:
    TableLine() = default;

private:
    friend class Table;
    explicit TableLine(libscols_line* line) : line(line) {}
    libscols_line* line = nullptr;
};

// Collects the lines of a table and prints them.
// Threads: one. Ownership: owns its lines; copies the texts. Failure: std::bad_alloc, and CommandError where standard
// output cannot be written.
class Table {
public:
    Table(const TableForm& form, const std::vector<TableColumn>& columns);

    // Adds a line with a text for each column, made printable; an empty text is an empty cell. In a tree it stands
    // under `parent`. Where the locale is not UTF-8, aligned columns show other characters than ASCII as \xHH, as
    // lsblk does.
    TableLine add(const std::vector<std::string>& texts, TableLine parent = TableLine());

    // Shows a cell in a color, by libsmartcols' name of it, in a table with colors.
    void color(TableLine line, std::size_t column, const char* name);

    // Writes the table to standard output.
    void print() const;

private:
    struct Unref {
        void operator()(libscols_table* unused) const;
    };
    std::unique_ptr<libscols_table, Unref> table;
    std::vector<ColumnType> types;
    bool tree;
    // Aligned columns in a locale without UTF-8: libsmartcols 2.38 measures a character that the locale does not have
    // without end.
    bool asciiOnly;
};

}  // namespace kivclaim::tools

#endif
