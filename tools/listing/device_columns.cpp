#include "tools/listing/device_columns.h"

#include <iterator>

using namespace kivclaim::machine;

namespace kivclaim::tools {

namespace {

constexpr unsigned int bitsOfAStep = 10;

std::string flagText(bool flag)
{
    return flag ? "1" : "0";
}

std::string numberText(const std::optional<DeviceNumber>& number)
{
    return number ? std::to_string(number->major) + ":" + std::to_string(number->minor) : "";
}

std::string listText(const List<std::string_view>& items)
{
    ListText text;
    for (const std::string_view item : items) {
        text.add(item);
    }
    return text.take();
}

// The latest first, as lsblk lists them.
std::string mountsText(const DeviceRow& row)
{
    ListText text;
    for (std::size_t i = row.device.mountPoints.size(); i > 0; --i) {
        text.add(row.device.mountPoints[i - 1]);
    }
    return text.take();
}

std::string mapText(const DeviceRow& row)
{
    const Device* const map = row.machine.mapOf(row.device);
    return map != nullptr ? std::string(map->node) : "";
}

std::string pathsText(const DeviceRow& row)
{
    ListText text;
    if (row.device.kind == Kind::multipathMap) {
        for (const Device* const path : row.machine.pathsOf(row.device)) {
            const std::string_view state = path->state.empty() ? std::string_view("unknown") : path->state;
            text.add(std::string(path->kernelName).append(":").append(state));
        }
    }
    return text.take();
}

std::string parentText(const DeviceRow& row)
{
    return row.parent != noDevice ? std::string(row.machine.devices()[row.parent].kernelName) : "";
}

template <std::string_view Device::*member>
std::string deviceText(const DeviceRow& row)
{
    return std::string(row.device.*member);
}

// DEVICE to WHOLE are shown by default. A claim needs no facts; the library's answers are about the node.
constexpr DeviceColumn columns[] = {
    {{"DEVICE", ColumnType::text}, basicFacts, deviceText<&Device::node>},
    {{"STACK", ColumnType::text}, basicFacts, [](const DeviceRow& row) { return row.answer.stack; }},
    {{"LEVEL", ColumnType::number}, basicFacts, [](const DeviceRow& row) { return std::to_string(row.answer.level); }},
    {{"PART", ColumnType::number},
     basicFacts,
     [](const DeviceRow& row) { return row.answer.isPartition ? std::to_string(row.answer.number) : ""; }},
    {{"WHOLE", ColumnType::text}, basicFacts, [](const DeviceRow& row) { return row.answer.wholeDevice; }},
    {{"MARK", ColumnType::text}, stacking, [](const DeviceRow& row) { return row.answer.marks; }},
    {{"KNAME", ColumnType::text}, basicFacts, deviceText<&Device::kernelName>},
    {{"MAJ:MIN", ColumnType::text}, numbers, [](const DeviceRow& row) { return numberText(row.device.number); }},
    {{"TYPE", ColumnType::text}, types, deviceText<&Device::type>},
    {{"SIZE", ColumnType::rightText},
     sizes,
     [](const DeviceRow& row) { return sizeText(row.device.bytes, row.bytes); }},
    {{"RO", ColumnType::flag}, protection, [](const DeviceRow& row) { return flagText(row.device.readOnly); }},
    {{"RM", ColumnType::flag}, removability, [](const DeviceRow& row) { return flagText(row.device.removable); }},
    {{"VENDOR", ColumnType::text}, models, deviceText<&Device::vendor>},
    {{"MODEL", ColumnType::text}, models, deviceText<&Device::model>},
    {{"REV", ColumnType::text}, models, deviceText<&Device::revision>},
    {{"SERIAL", ColumnType::text}, identities, deviceText<&Device::serial>},
    {{"WWN", ColumnType::text}, identities, deviceText<&Device::wwn>},
    {{"HCTL", ColumnType::text}, basicFacts, deviceText<&Device::scsiAddress>},
    {{"TRAN", ColumnType::text}, transports, deviceText<&Device::transport>},
    {{"STATE", ColumnType::text}, states, deviceText<&Device::state>},
    {{"PKNAME", ColumnType::text}, stacking, parentText},
    {{"MOUNTPOINTS", ColumnType::list}, mounts, mountsText},
    {{"FSTYPE", ColumnType::text}, contents, deviceText<&Device::fsType>},
    {{"LABEL", ColumnType::text}, contents, deviceText<&Device::fsLabel>},
    {{"UUID", ColumnType::text}, contents, deviceText<&Device::fsUuid>},
    {{"MAP", ColumnType::text}, stacking, mapText},
    {{"PATHS", ColumnType::list}, stacking | states, pathsText},
    {{"DMUUID", ColumnType::text}, basicFacts, deviceText<&Device::mapUuid>},
    {{"LINKS", ColumnType::list}, links, [](const DeviceRow& row) { return listText(row.device.links); }},
    {{"UNSURE", ColumnType::text}, basicFacts, [](const DeviceRow& row) { return row.answer.doubt.reason; }},
};

constexpr std::size_t shownByDefault = 5;
static_assert(std::size(columns) == deviceColumnOfDoubt + 1);

}  // namespace

const DeviceColumn& deviceColumn(std::size_t place)
{
    return columns[place];
}

KnownColumns knownDeviceColumns()
{
    KnownColumns known;
    known.shownByDefault = shownByDefault;
    for (const DeviceColumn& column : columns) {
        known.names.emplace_back(column.head.name);
    }
    return known;
}

TableColumn headOf(const TableColumn& head, bool bytes)
{
    return {head.name, bytes && head.type == ColumnType::rightText ? ColumnType::number : head.type};
}

std::string sizeText(std::optional<std::uint64_t> size, bool bytes)
{
    if (!size) {
        return "";
    }
    if (bytes) {
        return std::to_string(*size);
    }
    unsigned int step = 0;
    while (step < 6 && *size >> (bitsOfAStep * (step + 1)) != 0) {
        ++step;
    }
    const unsigned int shift = bitsOfAStep * step;
    const std::uint64_t rest = *size & ((std::uint64_t{1} << shift) - 1);
    // Cut to thousandths, then rounded to tenths, as lsblk does.
    const std::uint64_t thousandths = shift < 60 ? rest * 1000 >> shift : (rest >> 10U) * 1000 >> 50U;
    const std::uint64_t tenths = (thousandths + 50) / 100;
    const std::uint64_t whole = (*size >> shift) + tenths / 10;
    return std::to_string(whole) + (tenths % 10 != 0 ? "." + std::to_string(tenths % 10) : "") + "BKMGTPE"[step];
}

}  // namespace kivclaim::tools
