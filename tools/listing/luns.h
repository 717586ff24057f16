// The table of LUNs: one row for each, however many paths and maps it has.
#ifndef KIVCLAIM_TOOLS_LISTING_LUNS_H
#define KIVCLAIM_TOOLS_LISTING_LUNS_H

#include "machine/machine.h"
#include "tools/commands.h"
#include "tools/listing/asked_device.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kivclaim::tools {

// SCSI disks, NVMe namespaces, multipath maps and PowerPath devices with the same WWID are one LUN; each one without a
// WWID is a LUN of its own.
ExitStatus listLuns(const SessionOptions& session, const ListOptions& options);

// What the table needs to be known of a machine.
constexpr kivclaim::machine::Facts factsOfLuns =
    kivclaim::machine::numbers | kivclaim::machine::sizes | kivclaim::machine::stacking | kivclaim::machine::states |
    kivclaim::machine::models | kivclaim::machine::identities | kivclaim::machine::mounts;

// The whole table as texts, for the report.
struct LunRows {
    struct Row {
        std::vector<std::string> texts;  // one for each column; a list has an item a line
        kivclaim::machine::DeviceIndex device = kivclaim::machine::noDevice;  // the one to use
        std::uint64_t bytes = 0;
        std::string stack;
        bool isMarked = false;
    };
    std::vector<std::string> columns;
    std::vector<Row> rows;
};

// The machine was read with `factsOfLuns`, and is the one that the questions are about. Throws CommandError as `ask`.
LunRows lunRows(const kivclaim::machine::Machine& machine, DeviceQuestions& questions);

// The column names, as kivclaim's help lists them.
std::string lunColumnNames();

}  // namespace kivclaim::tools

#endif
