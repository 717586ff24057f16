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
    bool tree = false;    // the first column shows which line stands under which; not in raw or pairs
    bool colors = false;  // show those of the cells
};

// The text of a cell in a column of lists.
class ListText {
public:
    void add(std::string_view item);
    std::string take() { return std::move(text); }

private:
    std::string text;
};

// A line that others may stand under; by default none. Belongs to its table.
class TableLine {
public:
    TableLine() = default;

private:
    friend class Table;
    explicit TableLine(libscols_line* line) : line(line) {}
    libscols_line* line = nullptr;
};

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
