// A table on standard output, in the forms that people and scripts read.
#ifndef KIVCLAIM_TOOLS_TABLE_H
#define KIVCLAIM_TOOLS_TABLE_H

#include <memory>
#include <string>
#include <vector>

struct libscols_line;
struct libscols_table;

namespace kivclaim::tools {

enum class ColumnType { text, number };

struct TableColumn {
    const char* name;
    ColumnType type;
};

struct TableForm {
    std::string name;  // of the list of lines in JSON
    bool json = false;
    bool raw = false;
    bool noHeadings = false;
    bool tree = false;  // the first column shows which line stands under which
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
    // under `parent`.
    TableLine add(const std::vector<std::string>& texts, TableLine parent = TableLine());

    // Writes the table to standard output.
    void print() const;

private:
    struct Unref {
        void operator()(libscols_table* unused) const;
    };
    std::unique_ptr<libscols_table, Unref> table;
    bool tree;
};

}  // namespace kivclaim::tools

#endif
