// The table of this machine's block devices.
#include "host/printable_text.h"
#include "tools/block_devices.h"
#include "tools/commands.h"
#include "tools/output.h"
#include "tools/stack_name.h"

#include <libsmartcols.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <new>
#include <sstream>

using kivclaim::host::printableText;

namespace kivclaim::tools {

namespace {

// What the library answers about one device.
struct Answer {
    std::string device;
    std::string stack;
    unsigned int level = 0;
    std::string partitionNumber;  // empty for a whole device
    std::string wholeDevice;      // empty for a whole device
    std::string parent;           // what it stands under in a tree: by the library, otherwise by the kernel
};

struct Column {
    const char* name;
    int flags;
    int jsonType;
    std::string (*text)(const Answer& answer);
};

constexpr Column allColumns[] = {
    {"DEVICE", 0, SCOLS_JSON_STRING, [](const Answer& answer) { return answer.device; }},
    {"STACK", 0, SCOLS_JSON_STRING, [](const Answer& answer) { return answer.stack; }},
    {"LEVEL", SCOLS_FL_RIGHT, SCOLS_JSON_NUMBER, [](const Answer& answer) { return std::to_string(answer.level); }},
    {"PART", SCOLS_FL_RIGHT, SCOLS_JSON_NUMBER, [](const Answer& answer) { return answer.partitionNumber; }},
    {"WHOLE", 0, SCOLS_JSON_STRING, [](const Answer& answer) { return answer.wholeDevice; }},
};

Answer ask(CKivClaimManager& manager, const BlockDevice& device)
{
    const std::string& path = device.path;
    Answer answer;
    answer.device = path;
    answer.parent = device.wholeDevice;
    CKivDeviceClaimBase* module = nullptr;
    answer.level = manager.getClaimModule(module, path);
    answer.stack = stackName(module);
    if (module != nullptr && module->isPartition(path) != 0) {
        unsigned int number = 0;
        answer.wholeDevice = module->removePartitionSuffix(path, number);
        answer.partitionNumber = std::to_string(number);
        answer.parent = answer.wholeDevice;
    }
    return answer;
}

const Column& columnNamed(const std::string& name)
{
    const auto sameName = [&](const Column& column) { return strcasecmp(column.name, name.c_str()) == 0; };
    const auto* const found = std::find_if(std::begin(allColumns), std::end(allColumns), sameName);
    if (found == std::end(allColumns)) {
        throw CommandError("'" + name + "' is no column; the columns are DEVICE, STACK, LEVEL, PART and WHOLE");
    }
    return *found;
}

std::vector<Column> chosenColumns(const std::string& names)
{
    if (names.empty()) {
        return {std::begin(allColumns), std::end(allColumns)};
    }
    std::vector<Column> columns;
    std::istringstream stream(names);
    for (std::string name; std::getline(stream, name, ',');) {
        columns.push_back(columnNamed(name));
    }
    return columns;
}

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

struct Unref {
    void operator()(libscols_table* table) const { scols_unref_table(table); }
};

class Table {
public:
    Table(const ListOptions& options, std::vector<Column> chosen)
        : table(checked(scols_new_table())), columns(std::move(chosen)), tree(options.tree)
    {
        scols_table_set_name(table.get(), "blockdevices");
        scols_table_enable_json(table.get(), options.json ? 1 : 0);
        // All texts are printable already; a second encoding would spoil the \x20 that names really contain.
        scols_table_enable_noencoding(table.get(), 1);
        scols_table_enable_raw(table.get(), options.raw ? 1 : 0);
        scols_table_enable_noheadings(table.get(), options.noHeadings ? 1 : 0);
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const int treeFlag = tree && i == 0 ? SCOLS_FL_TREE : 0;
            libscols_column* const column =
                checked(scols_table_new_column(table.get(), columns[i].name, 0, columns[i].flags | treeFlag));
            checked(scols_column_set_json_type(column, columns[i].jsonType));
        }
    }

    // A partition stands under its whole device in a tree, when that is in the table already.
    void add(const Answer& answer)
    {
        const auto parent = lines.find(answer.parent);
        libscols_line* const line =
            checked(scols_table_new_line(table.get(), tree && parent != lines.end() ? parent->second : nullptr));
        lines[answer.device] = line;
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const std::string text = printableText(columns[i].text(answer));
            if (!text.empty()) {
                checked(scols_line_set_data(line, i, text.c_str()));
            }
        }
    }

    void print() const
    {
        checked(scols_print_table(table.get()));
        flushOutput();
    }

private:
    std::unique_ptr<libscols_table, Unref> table;
    std::vector<Column> columns;
    bool tree;
    std::map<std::string, libscols_line*> lines;
};

}  // namespace

ExitStatus list(const SessionOptions& options, const ListOptions& form)
{
    Table table(form, chosenColumns(form.columns));
    Session session(options, Questions::many);
    const std::vector<BlockDevice> devices = blockDevices();
    std::vector<Answer> answers;
    for (const BlockDevice& device : devices) {
        Answer answer = ask(session.manager, device);
        if (form.all || answer.level != 0) {
            answers.push_back(std::move(answer));
        }
    }
    // Whole devices first, so that every partition finds the line it belongs under.
    if (form.tree) {
        std::stable_partition(answers.begin(), answers.end(),
                              [](const Answer& answer) { return answer.parent.empty(); });
    }
    for (const Answer& answer : answers) {
        table.add(answer);
    }
    table.print();
    if (answers.empty()) {
        complain(form.all ? "this machine has no block device"
                          : "no stack claims any of the " + std::to_string(devices.size()) +
                                " block devices of this machine; 'kivclaim list --all' shows them");
    }
    return answeredYes;
}

}  // namespace kivclaim::tools
