// Answers that may be wrong, because something that they depend on failed: why, and what to do about it.
#ifndef KIVCLAIM_TOOLS_UNSURE_H
#define KIVCLAIM_TOOLS_UNSURE_H

#include "claim/kiv_claim_query.h"
#include "machine/machine.h"

#include <string>
#include <vector>

namespace kivclaim::tools {

class Session;

// Empty for a sure answer.
struct Doubt {
    std::string reason;  // in words for after "because"
    std::string remedy;  // what to do about it; may be empty

    bool isThere() const { return !reason.empty(); }
    // "REASON; REMEDY"
    std::string text() const { return reason + (remedy.empty() ? "" : "; " + remedy); }
};

// What makes `answer`, the latest of the session's, unsure; nothing for an answer that is sure or missing.
Doubt doubtAbout(const kivclaim::ClaimAnswer& answer, const Session& session);

// Whether lvm2 is not installed on the session's machine, and the kernel has no device of LVM: no device of the machine
// is a volume then, whatever could not be listed.
bool isWithoutVolumes(const kivclaim::VolumeListing& listing, const kivclaim::machine::Machine& machine,
                      const Session& session);

// Says on standard error why answers about devices are unsure: one line for each reason.
void complainOfDoubts(const std::vector<Doubt>& doubts);

}  // namespace kivclaim::tools

#endif
