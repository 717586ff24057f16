// The columns of the table of devices.
#ifndef KIVCLAIM_TOOLS_LISTING_DEVICE_COLUMNS_H
#define KIVCLAIM_TOOLS_LISTING_DEVICE_COLUMNS_H

#include "machine/machine.h"
#include "tools/listing/asked_device.h"
#include "tools/listing/column_choice.h"
#include "tools/table.h"

#include <optional>
#include <string>

namespace kivclaim::tools {

// A device in its place in the table.
struct DeviceRow {
    const kivclaim::machine::Machine& machine;
    const kivclaim::machine::Device& device;
    const DeviceAnswer& answer;
    kivclaim::machine::DeviceIndex parent;  // by the kernel; in a tree the one above it there
    bool bytes;                             // sizes as plain numbers
};

struct DeviceColumn {
    TableColumn head;
    kivclaim::machine::Facts facts;  // to be read for it
    std::string (*text)(const DeviceRow& row);
};

// All of them, by the places that chosenColumns gives.
const DeviceColumn& deviceColumn(std::size_t place);
KnownColumns knownDeviceColumns();

constexpr std::size_t deviceColumnOfStack = 1;
constexpr std::size_t deviceColumnOfMarks = 5;
constexpr std::size_t deviceColumnOfDoubt = 29;

// With bytes the size is a number.
TableColumn headOf(const TableColumn& head, bool bytes);

// "1.5T" as lsblk writes it, or all digits.
std::string sizeText(std::optional<std::uint64_t> size, bool bytes);

}  // namespace kivclaim::tools

#endif
