// The table of this machine's block devices.
#include "tools/block_devices.h"
#include "tools/commands.h"
#include "tools/output.h"
#include "tools/stack_name.h"
#include "tools/table.h"

#include <algorithm>
#include <map>
#include <sstream>

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
    TableColumn head;
    std::string (*text)(const Answer& answer);
};

constexpr Column allColumns[] = {
    {{"DEVICE", ColumnType::text}, [](const Answer& answer) { return answer.device; }},
    {{"STACK", ColumnType::text}, [](const Answer& answer) { return answer.stack; }},
    {{"LEVEL", ColumnType::number}, [](const Answer& answer) { return std::to_string(answer.level); }},
    {{"PART", ColumnType::number}, [](const Answer& answer) { return answer.partitionNumber; }},
    {{"WHOLE", ColumnType::text}, [](const Answer& answer) { return answer.wholeDevice; }},
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
    const auto sameName = [&](const Column& column) { return strcasecmp(column.head.name, name.c_str()) == 0; };
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

Table emptyTable(const ListOptions& options, const std::vector<Column>& columns)
{
    std::vector<TableColumn> heads;
    heads.reserve(columns.size());
    for (const Column& column : columns) {
        heads.push_back(column.head);
    }
    TableForm form;
    form.name = "blockdevices";
    form.json = options.json;
    form.raw = options.raw;
    form.noHeadings = options.noHeadings;
    form.tree = options.tree;
    return {form, heads};
}

std::vector<std::string> cells(const Answer& answer, const std::vector<Column>& columns)
{
    std::vector<std::string> texts;
    texts.reserve(columns.size());
    for (const Column& column : columns) {
        texts.push_back(column.text(answer));
    }
    return texts;
}

// A partition stands under its whole device in a tree, when that is in the table already.
void fill(Table& table, const std::vector<Column>& columns, const std::vector<Answer>& answers)
{
    std::map<std::string, TableLine> lines;
    for (const Answer& answer : answers) {
        const auto parent = lines.find(answer.parent);
        lines[answer.device] = table.add(cells(answer, columns), parent != lines.end() ? parent->second : TableLine());
    }
}

}  // namespace

ExitStatus list(const SessionOptions& options, const ListOptions& form)
{
    const std::vector<Column> columns = chosenColumns(form.columns);
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
    Table table = emptyTable(form, columns);
    fill(table, columns, answers);
    table.print();
    if (answers.empty()) {
        complain(form.all ? "this machine has no block device"
                          : "no stack claims any of the " + std::to_string(devices.size()) +
                                " block devices of this machine; 'kivclaim list --all' shows them");
    }
    return answeredYes;
}

}  // namespace kivclaim::tools
