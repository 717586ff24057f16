#include "tools/table.h"

#include "host/printable_text.h"
#include "tools/output.h"

#include <libsmartcols.h>

#include <new>

namespace kivclaim::tools {

namespace {

// libsmartcols reports running out of memory by its results; everything else here cannot fail.
template <class Result>
Result checked(Result result)
{
    if constexpr (std::is_pointer_v<Result>) {
        if (result == nullptr) {
            throw std::bad_alloc();
        }
    } else if (result < 0) {
        throw std::bad_alloc();
    }
    return result;
}

void addColumn(libscols_table* table, const TableColumn& head, int treeFlag)
{
    const bool number = head.type == ColumnType::number;
    libscols_column* const column =
        checked(scols_table_new_column(table, head.name, 0, treeFlag | (number ? SCOLS_FL_RIGHT : 0)));
    checked(scols_column_set_json_type(column, number ? SCOLS_JSON_NUMBER : SCOLS_JSON_STRING));
}

}  // namespace

void Table::Unref::operator()(libscols_table* unused) const
{
    scols_unref_table(unused);
}

Table::Table(const TableForm& form, const std::vector<TableColumn>& columns)
    : table(checked(scols_new_table())), tree(form.tree)
{
    scols_table_set_name(table.get(), form.name.c_str());
    scols_table_enable_json(table.get(), form.json ? 1 : 0);
    // All texts are printable already; a second encoding would spoil the \x20 that names really contain.
    scols_table_enable_noencoding(table.get(), 1);
    scols_table_enable_raw(table.get(), form.raw ? 1 : 0);
    scols_table_enable_noheadings(table.get(), form.noHeadings ? 1 : 0);
    bool first = true;
    for (const TableColumn& column : columns) {
        addColumn(table.get(), column, tree && first ? SCOLS_FL_TREE : 0);
        first = false;
    }
}

TableLine Table::add(const std::vector<std::string>& texts, TableLine parent)
{
    libscols_line* const line = checked(scols_table_new_line(table.get(), tree ? parent.line : nullptr));
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string text = kivclaim::host::printableText(texts[i]);
        if (!text.empty()) {
            checked(scols_line_set_data(line, i, text.c_str()));
        }
    }
    return TableLine(line);
}

void Table::print() const
{
    checked(scols_print_table(table.get()));
    flushOutput();
}

}  // namespace kivclaim::tools
