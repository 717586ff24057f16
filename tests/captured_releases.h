// The Debian releases that were captured in the lab: each has a directory of its name under tests/captured.
#ifndef KIVCLAIM_TESTS_CAPTURED_RELEASES_H
#define KIVCLAIM_TESTS_CAPTURED_RELEASES_H

#include <string>
#include <vector>

namespace tests {

// In the order of their names. The directory is listed, so it must contain nothing but directories.
std::vector<std::string> capturedReleases();

// The path and the content of a file of a release. The file must be there and, unless `mayBeEmpty`, not be empty:
// otherwise std::runtime_error names it.
std::string capturedPath(const std::string& release, const std::string& name);
std::string captured(const std::string& release, const std::string& name, bool mayBeEmpty = false);

}  // namespace tests

#endif
