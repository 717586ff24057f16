// Any listing of logical volumes gives exactly the paths that a plain reading of it gives.
#include "fuzz/scripted_runner.h"
#include "modules/kiv_linux_device_mapper_claim.h"

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

std::string trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \n\r\t");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \n\r\t") - first + 1);
}

// The first line from `from` on that contains `text`, and where in it; the number of lines without one.
std::size_t lineWith(const std::vector<std::string>& lines, std::size_t from, const char* text)
{
    while (from < lines.size() && lines[from].find(text) == std::string::npos) {
        ++from;
    }
    return from;
}

// Only for listings in which a group follows every volume.
bool readPlainly(const std::vector<std::string>& lines, std::set<std::string>& paths)
{
    for (std::size_t at = lineWith(lines, 0, "LV Name"); at < lines.size(); at = lineWith(lines, at + 1, "LV Name")) {
        const std::string& line = lines[at];
        const std::size_t slash = line.rfind('/');
        const std::string name = trimmed(line.substr((slash != std::string::npos ? slash : line.rfind(' ')) + 1));
        at = lineWith(lines, at, "VG Name");
        if (at == lines.size()) {
            return false;
        }
        const std::string group = trimmed(lines[at].substr(lines[at].find("VG Name") + 7));
        paths.insert(std::string("/dev/mapper/").append(group).append("-").append(name));
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::vector<std::string> lines = fuzz::linesOf({reinterpret_cast<const char*>(data), size});
    fuzz::commandsPrint(lines, 0);
    CKivDeviceMapperClaim module;
    fuzz::check(module.createLvmDeviceNamesList() == 0, "a listing that ended well is understood");
    std::set<std::string> paths;
    if (!readPlainly(lines, paths)) {
        return 0;
    }
    for (const std::string& path : paths) {
        fuzz::check(module.isLinuxLogicalVolume(path) == 1, "a volume in the listing is in the list");
        fuzz::check(module.isLinuxLogicalVolume(path + "x") == static_cast<int>(paths.count(path + "x")),
                    "a volume that is not in the listing is not in the list");
    }
    return 0;
}
