// What the library answers about the devices of a machine.
#ifndef KIVCLAIM_TOOLS_LISTING_ASKED_DEVICE_H
#define KIVCLAIM_TOOLS_LISTING_ASKED_DEVICE_H

#include "claim/kiv_claim_query.h"
#include "machine/machine.h"
#include "tools/session.h"
#include "tools/unsure.h"

#include <optional>
#include <string>

namespace kivclaim::tools {

struct DeviceAnswer {
    std::string stack;  // by the names of tools/stack_table.h, or of a module of the user's own
    unsigned int level = 0;
    bool isPartition = false;
    unsigned int number = 0;  // of a partition
    std::string wholeDevice;  // of a partition
    std::string marks;        // see marks.h
    Doubt doubt;
};

// Asks about one device after the other, all with one list of logical volumes unless the user wants it read again each
// time.
// Threads: one. Ownership: borrows the machine; owns a session. Failure: CommandError from the constructor, as Session.
class DeviceQuestions {
public:
    // Marks cost a few more questions.
    DeviceQuestions(const SessionOptions& options, const kivclaim::machine::Machine& machine, bool withMarks);

    // Throws CommandError when a module throws.
    DeviceAnswer ask(const kivclaim::machine::Device& device);

    // The names of the stacks that an answer may give.
    std::vector<std::string> stacks() const;

private:
    const kivclaim::machine::Machine& machine;
    SessionOptions options;
    Session session;
    bool keepsList;
    bool withMarks;
    std::optional<kivclaim::ClaimQuery> query;
    std::optional<bool> withoutVolumes;  // once it is known
};

}  // namespace kivclaim::tools

#endif
