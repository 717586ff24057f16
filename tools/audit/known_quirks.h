// Why the library's answers differ from the kernel's: the quirks that docs/quirks.md describes.
#ifndef KIVCLAIM_TOOLS_AUDIT_KNOWN_QUIRKS_H
#define KIVCLAIM_TOOLS_AUDIT_KNOWN_QUIRKS_H

#include "tools/audit/audited_device.h"
#include "tools/audit/expected_answers.h"

#include <vector>

namespace kivclaim::tools {

// Names the quirk that explains each difference of `devices`, if a known one does, with the reason; the others get a
// reason without a quirk. A quirk explains a difference only when the answer that it predicts is exactly what the
// library answered. Reads `volumes` where needed, and opens nodes. `devices` were audited by one session about `asked`,
// which is still open.
void explainDifferences(const AskedMachine& asked, VolumeListings& volumes, std::vector<AuditedDevice>& devices);

}  // namespace kivclaim::tools

#endif
