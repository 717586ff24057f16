#include "tools/table.h"

#include "host/printable_text.h"
#include "tools/output.h"
#include "tools/watch.h"

#include <langinfo.h>
#include <libsmartcols.h>

#include <cstdio>
#include <cstring>
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

int flagsOf(ColumnType type)
{
    switch (type) {
        case ColumnType::number:
        case ColumnType::rightText:
        case ColumnType::flag:
            return SCOLS_FL_RIGHT;
        case ColumnType::list:
            return SCOLS_FL_WRAP;
        case ColumnType::text:
            break;
    }
    return 0;
}

int jsonTypeOf(ColumnType type)
{
    switch (type) {
        case ColumnType::number:
            return SCOLS_JSON_NUMBER;
        case ColumnType::flag:
            return SCOLS_JSON_BOOLEAN;
        case ColumnType::list:
            return SCOLS_JSON_ARRAY_STRING;
        case ColumnType::text:
        case ColumnType::rightText:
            break;
    }
    return SCOLS_JSON_STRING;
}

void addColumn(libscols_table* table, const TableColumn& head, int treeFlag)
{
    libscols_column* const column = checked(scols_table_new_column(table, head.name, 0, treeFlag | flagsOf(head.type)));
    checked(scols_column_set_json_type(column, jsonTypeOf(head.type)));
    if (head.type == ColumnType::list) {
        checked(scols_column_set_wrapfunc(column, scols_wrapnl_chunksize, scols_wrapnl_nextchunk, nullptr));
        checked(scols_column_set_safechars(column, "\n"));
    }
}

bool isUtf8Locale()
{
    return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

// Bytes above 127 as \xHH.
std::string inAscii(std::string_view text)
{
    std::string result;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            result += character;
            continue;
        }
        char code[5];
        std::snprintf(code, sizeof code, "\\x%02x", byte);
        result += code;
    }
    return result;
}

}  // namespace

void ListText::add(std::string_view item)
{
    text += (text.empty() ? "" : "\n") + kivclaim::host::printableText(item);
}

void Table::Unref::operator()(libscols_table* unused) const
{
    scols_unref_table(unused);
}

Table::Table(const TableForm& form, const std::vector<TableColumn>& columns)
    : table(checked(scols_new_table())),
      tree(form.tree && !form.raw && !form.pairs),
      asciiOnly(!form.json && !form.raw && !form.pairs && !isUtf8Locale())
{
    scols_table_set_name(table.get(), form.name.c_str());
    scols_table_enable_json(table.get(), form.json ? 1 : 0);
    // All texts are printable already; a second encoding would spoil the \x20 that names really contain.
    scols_table_enable_noencoding(table.get(), 1);
    scols_table_enable_raw(table.get(), form.raw ? 1 : 0);
    scols_table_enable_export(table.get(), form.pairs ? 1 : 0);
    scols_table_enable_noheadings(table.get(), form.noHeadings ? 1 : 0);
    scols_table_enable_colors(table.get(), form.colors ? 1 : 0);
    for (const TableColumn& column : columns) {
        addColumn(table.get(), column, tree && types.empty() ? SCOLS_FL_TREE : 0);
        types.push_back(column.type);
    }
}

TableLine Table::add(const std::vector<std::string>& texts, TableLine parent)
{
    libscols_line* const line = checked(scols_table_new_line(table.get(), tree ? parent.line : nullptr));
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].empty()) {
            continue;
        }
        const bool isPrintable = types[i] == ColumnType::list;
        const std::string text = isPrintable ? texts[i] : kivclaim::host::printableText(texts[i]);
        checked(scols_line_set_data(line, i, asciiOnly ? inAscii(text).c_str() : text.c_str()));
    }
    return TableLine(line);
}

void Table::color(TableLine line, std::size_t column, const char* name)
{
    checked(scols_cell_set_color(scols_line_get_cell(line.line, column), name));
}

void Table::print() const
{
    Watch::beforeOutput();
    checked(scols_print_table(table.get()));
    flushOutput();
}

}  // namespace kivclaim::tools
