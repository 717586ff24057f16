// Whatever table the volume manager's tool prints, an answer is a column of it, and the retries end.
#include "fuzz/scripted_runner.h"
#include "modules/kiv_nativepath_claim.h"

#include <string>
#include <string_view>
#include <vector>

namespace {

bool standsIn(const std::vector<std::string>& lines, const std::string& word)
{
    for (std::size_t i = 2; i < lines.size(); ++i) {
        if (lines[i].find(word) != std::string::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::vector<std::string> lines = fuzz::linesOf({reinterpret_cast<const char*>(data) + 1, size - 1});
    const int toolResult = data[0] % 2;
    fuzz::commandsPrint(lines, toolResult);
    CZtKIVSupport support;
    std::string node;
    const int nodeResult = support.getZtVMDiskForOSDiskHandler("sdc", node);
    fuzz::check(toolResult == 0 || nodeResult == 1, "a failed query fails");
    fuzz::check(node.empty() || (nodeResult == 0 && standsIn(lines, node)), "a node is in a row of the table");

    std::string path;
    const int pathResult = support.getOSDiskHandleForZtVMDisk("kiv0_1", path);
    fuzz::check(path.empty() || (pathResult == 0 && standsIn(lines, path)), "a path is in a row of the table");

    fuzz::commandsPrint(lines, toolResult);
    support.getZtVMDiskForOSDiskHandler_Waited("sdc", node);
    fuzz::check(fuzz::commandsRun() <= 8, "the waited lookup ends after four queries and rescans");
    fuzz::commandsPrint(lines, toolResult);
    support.getZtVMDiskForOSDiskHandler_Refreshed("sdc", node);
    fuzz::check(fuzz::commandsRun() <= 10, "the refreshed lookup ends after five queries, four rescans, one removal");

    CNativePathClaim module;
    fuzz::check(!module.getActivePath("/dev/sdc", true).empty(), "a disk always has a path");
    return 0;
}
