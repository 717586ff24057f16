#include "tools/recording/recording.h"

#include <algorithm>
#include <string_view>

using kivclaim::machine::CopiedFile;
using kivclaim::machine::CopiedFiles;

namespace kivclaim::tools {

namespace {

constexpr std::size_t longestPath = 4095;
constexpr std::size_t longestName = 255;

// Calls take(name) for each name between slashes.
template <class Take>
void forEachName(std::string_view path, Take take)
{
    for (;;) {
        const std::size_t slash = path.find('/');
        take(path.substr(0, slash));
        if (slash == std::string_view::npos) {
            return;
        }
        path.remove_prefix(slash + 1);
    }
}

bool isName(std::string_view name)
{
    return !name.empty() && name.size() <= longestName && name != "." && name != ".." &&
           name.find('\0') == std::string_view::npos;
}

}  // namespace

void checkPath(const std::string& path)
{
    bool isGood = path.size() <= longestPath;
    std::size_t depth = 0;
    forEachName(path, [&](std::string_view name) {
        isGood = isGood && isName(name);
        ++depth;
    });
    if (!isGood || depth > deepestRecordedFile) {
        throw RecordingError("the name '" + path.substr(0, longestName) + "' leads outside or is none");
    }
}

void checkLink(const std::string& path, const std::string& target)
{
    const auto depth = static_cast<std::size_t>(std::count(path.begin(), path.end(), '/'));
    std::size_t upwards = 0;
    bool isGood = target.size() <= longestPath;
    bool isBelow = false;
    forEachName(target, [&](std::string_view name) {
        if (name == ".." && !isBelow) {
            ++upwards;
        } else {
            isBelow = true;
            isGood = isGood && isName(name);
        }
    });
    if (!isGood || upwards > depth) {
        throw RecordingError("the link '" + path + "' leads outside or nowhere, to '" + target.substr(0, longestName) +
                             "'");
    }
}

void checkDirectories(const CopiedFiles& files)
{
    for (const auto& [path, file] : files) {
        const std::size_t slash = path.rfind('/');
        if (slash == std::string::npos) {
            continue;
        }
        const auto above = files.find(path.substr(0, slash));
        if (above == files.end() || above->second.type != CopiedFile::Type::directory) {
            throw RecordingError("'" + path + "' is in no directory of it");
        }
    }
}

}  // namespace kivclaim::tools
