// Claim modules that come from files of their own.
#ifndef KIVCLAIM_TOOLS_MODULE_FILE_H
#define KIVCLAIM_TOOLS_MODULE_FILE_H

#include "claim/kiv_device_claim_base.h"

#include <memory>
#include <string>
#include <vector>

namespace kivclaim::tools {

// A new module out of the file at `path`, as claim/kiv_claim_module_entry.h says. A name without a slash is a file of
// the current directory: no library path is searched. The file is never unloaded, so the module may be used for any
// time; loading it again gives another module. Throws CommandError, which names the file, when it gives none.
std::unique_ptr<CKivDeviceClaimBase> loadModule(const std::string& path);

// True if a loadable segment lies past the end of the file at `path`, a regular one: using it would end in SIGBUS.
bool isCutOff(const std::string& path);

// One module out of each file, in order; all or none.
std::vector<std::unique_ptr<CKivDeviceClaimBase>> loadModules(const std::vector<std::string>& paths);

}  // namespace kivclaim::tools

#endif
