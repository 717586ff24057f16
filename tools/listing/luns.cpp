#include "tools/listing/luns.h"

#include "tools/listing/device_columns.h"
#include "tools/listing/list_form.h"
#include "tools/listing/marks.h"
#include "tools/listing/named_devices.h"
#include "tools/output.h"

#include <algorithm>
#include <set>
#include <unordered_map>

using namespace kivclaim::machine;

namespace kivclaim::tools {

namespace {

constexpr char withoutMap[] = "no-map";
constexpr char ofTwoStacks[] = "two-stacks";

struct Lun {
    std::string wwid;
    std::vector<DeviceIndex> paths;    // disks, hidden ones included
    std::vector<DeviceIndex> devices;  // all that may be used, maps first
    DeviceIndex used = noDevice;       // the one that should be
    DeviceAnswer answer;               // about that
    std::string marks;
};

struct LunRow {
    const Machine& machine;
    const Lun& lun;
    bool bytes;
};

bool isDisk(const Device& device)
{
    return device.kind == Kind::scsiDisk || device.kind == Kind::nvme;
}

bool isMap(const Device& device)
{
    return device.kind == Kind::multipathMap || device.kind == Kind::powerPath;
}

bool isUp(const Device& path)
{
    return path.state == "running" || path.state == "live";
}

const Device& usedDevice(const LunRow& row)
{
    return row.machine.devices()[row.lun.used];
}

// Maps have none of their own: that of the first device that has it.
template <std::string_view Device::*member>
std::string lunText(const LunRow& row)
{
    for (const std::vector<DeviceIndex>* const devices : {&row.lun.devices, &row.lun.paths}) {
        for (const DeviceIndex device : *devices) {
            const std::string_view text = row.machine.devices()[device].*member;
            if (!text.empty()) {
                return std::string(text);
            }
        }
    }
    return "";
}

std::string pathsText(const LunRow& row)
{
    const auto up = std::count_if(row.lun.paths.begin(), row.lun.paths.end(),
                                  [&](DeviceIndex path) { return isUp(row.machine.devices()[path]); });
    return row.lun.paths.empty() ? "" : std::to_string(up) + "/" + std::to_string(row.lun.paths.size());
}

std::string partitionsText(const LunRow& row)
{
    ListText text;
    for (const DeviceIndex partition : usedDevice(row).partitions) {
        text.add(row.machine.devices()[partition].node);
    }
    return text.take();
}

// Of everything that is stacked on the LUN.
std::string mountsText(const LunRow& row)
{
    std::vector<DeviceIndex> open = row.lun.devices;
    std::set<DeviceIndex> seen(open.begin(), open.end());
    std::set<std::string_view> places;
    while (!open.empty()) {
        const Device& device = row.machine.devices()[open.back()];
        open.pop_back();
        places.insert(device.mountPoints.begin(), device.mountPoints.end());
        for (const List<DeviceIndex>* const above : {&device.partitions, &device.holders}) {
            std::copy_if(above->begin(), above->end(), std::back_inserter(open),
                         [&](DeviceIndex one) { return seen.insert(one).second; });
        }
    }
    ListText text;
    for (const std::string_view place : places) {
        text.add(place);
    }
    return text.take();
}

struct LunColumn {
    TableColumn head;
    std::string (*text)(const LunRow& row);
};

constexpr LunColumn columns[] = {
    {{"WWID", ColumnType::text}, [](const LunRow& row) { return row.lun.wwid; }},
    {{"SIZE", ColumnType::rightText}, [](const LunRow& row) { return sizeText(usedDevice(row).bytes, row.bytes); }},
    {{"VENDOR", ColumnType::text}, lunText<&Device::vendor>},
    {{"MODEL", ColumnType::text}, lunText<&Device::model>},
    {{"DEVICE", ColumnType::text}, [](const LunRow& row) { return std::string(usedDevice(row).node); }},
    {{"STACK", ColumnType::text}, [](const LunRow& row) { return row.lun.answer.stack; }},
    {{"PATHS", ColumnType::rightText}, pathsText},
    {{"PARTITIONS", ColumnType::list}, partitionsText},
    {{"MOUNTPOINTS", ColumnType::list}, mountsText},
    {{"MARK", ColumnType::text}, [](const LunRow& row) { return row.lun.marks; }},
    {{"UNSURE", ColumnType::text}, [](const LunRow& row) { return row.lun.answer.doubt.reason; }},
};
constexpr std::size_t columnOfSize = 1;
constexpr std::size_t columnOfStack = 5;
constexpr std::size_t columnOfMarks = 9;
constexpr std::size_t columnOfDoubt = 10;

KnownColumns knownColumns()
{
    KnownColumns known;
    for (const LunColumn& column : columns) {
        known.names.emplace_back(column.head.name);
    }
    known.shownByDefault = columnOfDoubt;
    return known;
}

TableColumn lunHead(std::size_t column, bool bytes)
{
    return column == columnOfSize ? headOf(columns[column].head, bytes) : columns[column].head;
}

class LunList {
public:
    LunList(const Machine& machine, DeviceQuestions& questions, const ListOptions& options, bool noWarnings)
        : options(options),
          noWarnings(noWarnings),
          form(formOf(options, "luns")),
          chosen(chosenColumns(knownColumns(), options)),
          sortColumn(options.sortColumn.empty() ? 0 : columnNamed(knownColumns(), options.sortColumn)),
          machine(machine),
          questions(questions),
          stacks(chosenStacks(options, questions.stacks()))
    {
    }

    // Of all LUNs, in all columns.
    LunRows rows()
    {
        gather();
        LunRows rows;
        rows.columns = knownColumns().names;
        for (Lun& lun : luns) {
            decide(lun);
            if (lun.used == noDevice) {
                continue;
            }
            LunRows::Row& row = rows.rows.emplace_back();
            for (const LunColumn& column : columns) {
                row.texts.push_back(column.text({machine, lun, false}));
            }
            row.device = lun.used;
            row.bytes = usedDevice({machine, lun, false}).bytes.value_or(0);
            row.stack = lun.answer.stack;
            row.isMarked = !lun.marks.empty();
        }
        return rows;
    }

    ExitStatus print()
    {
        complainAboutReading(machine);
        std::vector<DeviceIndex> named;
        const ExitStatus found = findNamedDevices(machine, options.paths, named);
        gather();
        if (!options.paths.empty()) {
            keepNamed(named);
        }
        for (Lun& lun : luns) {
            decide(lun);
        }
        const std::size_t all = luns.size();
        luns.erase(std::remove_if(luns.begin(), luns.end(), [this](const Lun& lun) { return !isShown(lun); }),
                   luns.end());
        const bool isUnsure = tellDoubts();
        printTable();
        if (luns.empty() && found == answeredYes) {
            complain(all == 0 ? "no block device of this machine is a LUN"
                              : "none of the " + std::to_string(all) + " LUNs of this machine is like that");
        }
        return options.strict && isUnsure ? worse(found, answeredUnsure) : found;
    }

private:
    // Tells whether there are any.
    bool tellDoubts()
    {
        std::vector<Doubt> doubts;
        for (const Lun& lun : luns) {
            if (lun.answer.doubt.isThere()) {
                doubts.push_back(lun.answer.doubt);
            }
        }
        addDoubtColumn(options, doubts, columnOfDoubt, chosen);
        if (!noWarnings) {
            complainOfDoubts(doubts);
        }
        return !doubts.empty();
    }

    // A path whose own WWID is not known has that of its map; a PowerPath device that of its paths.
    std::string_view wwidOf(const Device& device) const
    {
        const Device* const map = isDisk(device) ? machine.mapOf(device) : nullptr;
        if (map != nullptr && !map->wwid.empty()) {
            return map->wwid;
        }
        const bool hasPaths = device.kind == Kind::powerPath && !device.slaves.empty();
        return device.wwid.empty() && hasPaths ? machine.devices()[device.slaves[0]].wwid : device.wwid;
    }

    void gather()
    {
        std::unordered_map<std::string_view, std::size_t> byWwid;
        lunOfDevice.resize(machine.devices().size(), SIZE_MAX);
        for (DeviceIndex i = 0; i < machine.devices().size(); ++i) {
            const Device& device = machine.devices()[i];
            if (!isDisk(device) && !isMap(device)) {
                continue;
            }
            const std::string_view wwid = wwidOf(device);
            const auto [place, isNew] = byWwid.emplace(wwid, luns.size());
            if (isNew || wwid.empty()) {
                luns.emplace_back();
                luns.back().wwid = wwid;
            }
            const std::size_t number = wwid.empty() ? luns.size() - 1 : place->second;
            lunOfDevice[i] = number;
            add(luns[number], i);
        }
    }

    void add(Lun& lun, DeviceIndex index) const
    {
        const Device& device = machine.devices()[index];
        if (isDisk(device)) {
            lun.paths.push_back(index);
        }
        if (!device.hidden) {
            lun.devices.push_back(index);
        }
    }

    void keepNamed(const std::vector<DeviceIndex>& named)
    {
        std::set<std::size_t> wanted;
        for (const DeviceIndex device : named) {
            wanted.insert(lunOfDevice[machine.indexOf(machine.wholeOf(machine.devices()[device]))]);
        }
        std::vector<Lun> kept;
        for (const std::size_t number : wanted) {
            if (number != SIZE_MAX) {
                kept.push_back(std::move(luns[number]));
            }
        }
        luns = std::move(kept);
    }

    // A namespace with hidden paths is their map, not one more path.
    void separateHead(Lun& lun) const
    {
        const auto isHidden = [this](DeviceIndex path) { return machine.devices()[path].hidden; };
        if (std::any_of(lun.paths.begin(), lun.paths.end(), isHidden)) {
            lun.paths.erase(
                std::remove_if(lun.paths.begin(), lun.paths.end(), [&](DeviceIndex path) { return !isHidden(path); }),
                lun.paths.end());
        }
    }

    // Which device to use, and what is wrong.
    void decide(Lun& lun)
    {
        separateHead(lun);
        // Where no claim decides, a map does.
        std::stable_partition(lun.devices.begin(), lun.devices.end(),
                              [this](DeviceIndex device) { return isMap(machine.devices()[device]); });
        std::set<std::string> stacksOfMaps;
        MarkText marks;
        for (const DeviceIndex device : lun.devices) {
            const DeviceAnswer answer = questions.ask(machine.devices()[device]);
            if (answer.level != 0 && !isDisk(machine.devices()[device])) {
                stacksOfMaps.insert(answer.stack);
            }
            marks.add(machine.devices()[device].marks);
            if (lun.used == noDevice || answer.level > lun.answer.level) {
                lun.used = device;
                lun.answer = answer;
            }
        }
        lun.marks = marksOfLun(lun, stacksOfMaps, marks);
    }

    std::string marksOfLun(const Lun& lun, const std::set<std::string>& stacksOfMaps, MarkText& reading) const
    {
        MarkText marks;
        const bool hasMap = std::any_of(lun.devices.begin(), lun.devices.end(),
                                        [this](DeviceIndex device) { return isMap(machine.devices()[device]); });
        const bool isHead = !lun.paths.empty() && machine.devices()[lun.paths.front()].hidden;
        if (lun.paths.size() > 1 && !hasMap && !isHead) {
            marks.add(withoutMap);
        }
        if (stacksOfMaps.size() > 1) {
            marks.add(ofTwoStacks);
        }
        for (const std::string& mark : splitAtCommas(lun.answer.marks + "," + reading.take())) {
            if (!mark.empty()) {
                marks.add(mark);
            }
        }
        return marks.take();
    }

    bool isShown(const Lun& lun) const
    {
        return lun.used != noDevice && (!options.markedOnly || !lun.marks.empty()) &&
               (stacks.empty() || std::find(stacks.begin(), stacks.end(), lun.answer.stack) != stacks.end());
    }

    void printTable() const
    {
        std::vector<TableColumn> heads;
        for (const std::size_t column : chosen) {
            heads.push_back(lunHead(column, options.bytes));
        }
        std::vector<std::string> keys;
        for (const Lun& lun : luns) {
            keys.push_back(columns[sortColumn].text({machine, lun, true}));
        }
        Table table(form, heads);
        for (const std::size_t place : sortedPlaces(keys)) {
            addRow(table, luns[place]);
        }
        table.print();
    }

    void addRow(Table& table, const Lun& lun) const
    {
        std::vector<std::string> texts;
        for (const std::size_t column : chosen) {
            texts.push_back(columns[column].text({machine, lun, options.bytes}));
        }
        const TableLine line = table.add(texts);
        for (std::size_t i = 0; form.colors && i < chosen.size(); ++i) {
            if (chosen[i] == columnOfStack && colorOf(lun.answer.stack) != nullptr) {
                table.color(line, i, colorOf(lun.answer.stack));
            } else if (chosen[i] == columnOfMarks && !lun.marks.empty()) {
                table.color(line, i, colorOfMarks);
            }
        }
    }

    const ListOptions& options;
    bool noWarnings;
    TableForm form;
    std::vector<std::size_t> chosen;
    std::size_t sortColumn;
    const Machine& machine;
    DeviceQuestions& questions;
    std::vector<std::string> stacks;
    std::vector<Lun> luns;
    std::vector<std::size_t> lunOfDevice;
};

}  // namespace

ExitStatus listLuns(const SessionOptions& session, const ListOptions& options)
{
    const Machine machine = Machine::read(session.root(), factsOfLuns);
    DeviceQuestions questions(session, machine, true);
    return LunList(machine, questions, options, session.noWarnings).print();
}

LunRows lunRows(const Machine& machine, DeviceQuestions& questions)
{
    return LunList(machine, questions, {}, true).rows();
}

std::string lunColumnNames()
{
    return enumeration(knownColumns().names);
}

}  // namespace kivclaim::tools
