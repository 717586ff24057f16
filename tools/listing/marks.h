// What is worth knowing about a row of the table of devices, as short words.
#ifndef KIVCLAIM_TOOLS_LISTING_MARKS_H
#define KIVCLAIM_TOOLS_LISTING_MARKS_H

#include "claim/kiv_claim_query.h"
#include "machine/machine.h"
#include "tools/listing/asked_device.h"

#include <string>

namespace kivclaim::tools {

// Collects the words, separated by commas, each once. A value; threads: one at a time. Failure: std::bad_alloc.
class MarkText {
public:
    void add(std::string_view mark);
    // Those of what went wrong when the device was read.
    void add(kivclaim::machine::Marks marks);
    std::string take() { return std::move(text); }

private:
    std::string text;
};

// The quirks that concern the device, by their short names in docs/quirks.md; "unsure" for an answer that depends on
// something that failed; then what went wrong when the device was read. The machine must have been read with the
// stacking. Quirks that take further questions to be seen are for `kivclaim audit`.
std::string marksOf(const kivclaim::ClaimAnswer& claimed, const DeviceAnswer& answer,
                    const kivclaim::machine::Device& device, const kivclaim::machine::Machine& machine);

}  // namespace kivclaim::tools

#endif
