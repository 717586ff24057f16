#include "tests/captured_releases.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tests {

std::vector<std::string> capturedReleases()
{
    std::vector<std::string> releases;
    for (const auto& entry : std::filesystem::directory_iterator(KIVCLAIM_CAPTURED)) {
        if (!entry.is_directory()) {
            throw std::runtime_error(entry.path().string() + " is no directory of a release: move or remove it");
        }
        releases.push_back(entry.path().filename());
    }
    std::sort(releases.begin(), releases.end());
    return releases;
}

std::string capturedPath(const std::string& release, const std::string& name)
{
    std::string path = std::string(KIVCLAIM_CAPTURED) + "/" + release + "/" + name;
    if (!std::filesystem::is_regular_file(path)) {
        throw std::runtime_error(path + " is missing: ./dev lab --release " + release + " --capture makes it");
    }
    return path;
}

std::string captured(const std::string& release, const std::string& name, bool mayBeEmpty)
{
    std::ifstream file(capturedPath(release, name));
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (text.empty() && !mayBeEmpty) {
        throw std::runtime_error(capturedPath(release, name) + " is empty");
    }
    return text;
}

}  // namespace tests
