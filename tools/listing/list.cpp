// The table of a machine's block devices.
#include "tools/commands.h"
#include "tools/listing/device_columns.h"
#include "tools/listing/device_tree.h"
#include "tools/listing/list_form.h"
#include "tools/listing/luns.h"
#include "tools/listing/named_devices.h"
#include "tools/output.h"

#include <algorithm>
#include <cstring>
#include <optional>

using namespace kivclaim::machine;

namespace kivclaim::tools {

namespace {

// What to show, as far as it is known before the machine is read.
struct Choice {
    explicit Choice(const ListOptions& options) : form(formOf(options, "blockdevices"))
    {
        const KnownColumns known = knownDeviceColumns();
        columns = chosenColumns(known, options);
        if (!options.sortColumn.empty()) {
            sortColumn = columnNamed(known, options.sortColumn);
        }
    }

    bool holds(std::size_t column) const
    {
        return std::find(columns.begin(), columns.end(), column) != columns.end() || sortColumn == column;
    }

    TableForm form;
    std::vector<std::size_t> columns;
    std::optional<std::size_t> sortColumn;
};

Facts factsFor(const Choice& choice, const ListOptions& options)
{
    Facts facts = choice.form.tree || options.markedOnly ? stacking : basicFacts;
    for (const std::size_t column : choice.columns) {
        facts |= deviceColumn(column).facts;
    }
    if (choice.sortColumn) {
        facts |= deviceColumn(*choice.sortColumn).facts;
    }
    return facts | (options.paths.empty() ? basicFacts : numbers);
}

class DeviceList {
public:
    DeviceList(const SessionOptions& session, const ListOptions& options)
        : options(options),
          noWarnings(session.noWarnings),
          choice(options),
          machine(Machine::read(session.root(), factsFor(choice, options))),
          questions(session, machine, options.markedOnly || choice.holds(deviceColumnOfMarks)),
          stacks(chosenStacks(options, questions.stacks())),
          answers(machine.devices().size()),
          shown(machine.devices().size()),
          isNamed(machine.devices().size())
    {
    }

    ExitStatus print()
    {
        complainAboutReading(machine);
        const ExitStatus found = findNamedDevices(machine, options.paths, named);
        for (const DeviceIndex device : named) {
            isNamed[device] = true;
        }
        order = options.paths.empty() || choice.form.tree ? byNode() : named;
        for (const DeviceIndex device : order) {
            answers[device] = questions.ask(machine.devices()[device]);
        }
        for (const DeviceIndex device : order) {
            shown[device] = isShown(device);
        }
        const bool isUnsure = tellDoubts();
        sort();
        // Nothing is left of a list of devices that are none.
        const std::vector<TreeNode> rows = !options.paths.empty() && named.empty() ? std::vector<TreeNode>() : nodes();
        printTable(rows);
        if (rows.empty() && found == answeredYes) {
            complainAboutNothing();
        }
        return options.strict && isUnsure ? worse(found, answeredUnsure) : found;
    }

private:
    std::vector<DeviceIndex> byNode() const
    {
        std::vector<DeviceIndex> devices;
        for (DeviceIndex i = 0; i < machine.devices().size(); ++i) {
            if (!machine.devices()[i].hidden && !machine.devices()[i].node.empty()) {
                devices.push_back(i);
            }
        }
        std::sort(devices.begin(), devices.end(), [this](DeviceIndex one, DeviceIndex other) {
            return strverscmp(machine.devices()[one].node.data(), machine.devices()[other].node.data()) < 0;
        });
        return devices;
    }

    bool isShown(DeviceIndex device) const
    {
        const DeviceAnswer& answer = answers[device];
        if (!stacks.empty() && std::find(stacks.begin(), stacks.end(), answer.stack) == stacks.end()) {
            return false;
        }
        if (options.markedOnly) {
            return !answer.marks.empty();
        }
        return options.all || !stacks.empty() || answer.level != 0 || isNamed[device];
    }

    // Tells whether there are any.
    bool tellDoubts()
    {
        std::vector<Doubt> doubts;
        for (const DeviceIndex device : order) {
            if (shown[device] && answers[device].doubt.isThere()) {
                doubts.push_back(answers[device].doubt);
            }
        }
        addDoubtColumn(options, doubts, deviceColumnOfDoubt, choice.columns);
        if (!noWarnings) {
            complainOfDoubts(doubts);
        }
        return !doubts.empty();
    }

    DeviceRow row(DeviceIndex device, DeviceIndex parent, bool bytes) const
    {
        return {machine, machine.devices()[device], answers[device], parent, bytes};
    }

    DeviceIndex parentOf(DeviceIndex device) const
    {
        const std::vector<DeviceIndex> parents = kernelParents(machine.devices()[device]);
        return parents.empty() ? noDevice : parents.front();
    }

    void sort()
    {
        if (!choice.sortColumn) {
            return;
        }
        std::vector<std::string> keys;
        for (const DeviceIndex device : order) {
            keys.push_back(deviceColumn(*choice.sortColumn).text(row(device, parentOf(device), true)));
        }
        std::vector<DeviceIndex> sorted;
        for (const std::size_t place : sortedPlaces(keys)) {
            sorted.push_back(order[place]);
        }
        order = std::move(sorted);
    }

    // The kernel's, and for devices of which it tells nothing the library's.
    DeviceGraph graph() const
    {
        DeviceGraph graph(machine.devices().size());
        for (const DeviceIndex device : order) {
            std::vector<DeviceIndex> parents = kernelParents(machine.devices()[device]);
            if (parents.empty() && answers[device].isPartition) {
                const Device* const whole = deviceNamed(answers[device].wholeDevice);
                parents.assign(whole != nullptr ? 1 : 0, whole != nullptr ? machine.indexOf(*whole) : noDevice);
            }
            for (const DeviceIndex parent : parents) {
                graph.link(parent, device);
            }
        }
        return graph;
    }

    const Device* deviceNamed(const std::string& node) const
    {
        constexpr std::string_view dev = "/dev/";
        return node.compare(0, dev.size(), dev) == 0 ? machine.byKernelName(std::string_view(node).substr(dev.size()))
                                                     : nullptr;
    }

    std::vector<TreeNode> nodes() const
    {
        if (choice.form.tree) {
            const DeviceGraph relations = graph();
            std::vector<TreeNode> tree =
                treeOf(options.inverse ? relations.parents : relations.children, order, shown, named);
            for (TreeNode& node : tree) {
                node.parent = node.parent == noDevice && !options.inverse ? parentOf(node.device) : node.parent;
            }
            return tree;
        }
        std::vector<TreeNode> rows;
        for (const DeviceIndex device : order) {
            if (shown[device]) {
                rows.push_back({device, parentOf(device), noLine});
            }
        }
        return rows;
    }

    void printTable(const std::vector<TreeNode>& rows) const
    {
        std::vector<TableColumn> heads;
        for (const std::size_t column : choice.columns) {
            heads.push_back(headOf(deviceColumn(column).head, options.bytes));
        }
        Table table(choice.form, heads);
        std::vector<TableLine> lines;
        std::vector<std::string> texts(heads.size());
        for (const TreeNode& node : rows) {
            const DeviceRow shownRow = row(node.device, node.parent, options.bytes);
            for (std::size_t i = 0; i < texts.size(); ++i) {
                texts[i] = deviceColumn(choice.columns[i]).text(shownRow);
            }
            lines.push_back(table.add(texts, node.line != noLine ? lines[node.line] : TableLine()));
            if (choice.form.colors) {
                color(table, lines.back(), answers[node.device]);
            }
        }
        table.print();
    }

    void color(Table& table, TableLine line, const DeviceAnswer& answer) const
    {
        for (std::size_t i = 0; i < choice.columns.size(); ++i) {
            if (choice.columns[i] == deviceColumnOfStack && colorOf(answer.stack) != nullptr) {
                table.color(line, i, colorOf(answer.stack));
            } else if (choice.columns[i] == deviceColumnOfMarks && !answer.marks.empty()) {
                table.color(line, i, colorOfMarks);
            }
        }
    }

    void complainAboutNothing() const
    {
        const std::string count = std::to_string(order.size());
        if (order.empty()) {
            complain("this machine has no block device");
        } else if (options.markedOnly || !stacks.empty()) {
            complain("none of the " + count + " block devices of this machine is " +
                     (options.markedOnly ? "marked" : "claimed like that") + "; 'kivclaim list --all' shows them");
        } else {
            complain("no stack claims any of the " + count +
                     " block devices of this machine; 'kivclaim list --all' shows them");
        }
    }

    const ListOptions& options;
    bool noWarnings;
    Choice choice;
    Machine machine;
    DeviceQuestions questions;
    std::vector<std::string> stacks;
    std::vector<DeviceAnswer> answers;
    std::vector<bool> shown;
    std::vector<bool> isNamed;
    std::vector<DeviceIndex> named;
    std::vector<DeviceIndex> order;
};

}  // namespace

ExitStatus list(const SessionOptions& session, const ListOptions& options)
{
    return options.luns ? listLuns(session, options) : DeviceList(session, options).print();
}

std::string listColumnNames()
{
    return enumeration(knownDeviceColumns().names);
}

}  // namespace kivclaim::tools
