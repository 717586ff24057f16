#!/usr/bin/env bash
# Every file that names the version names the one of claim/kiv_version.h: version_test.sh VERSION.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
version=$1

wrong=0
# names FILE PATTERN: the first line that matches names the version.
names() {
    local line
    line=$(grep -m 1 -E "$2" "$1" || true)
    grep -qwF -- "$version" <<<"$line" || { echo "$1 does not name version $version: $line" && wrong=1; }
}

names debian/changelog '^kivclaim \('
names CHANGELOG.md '^## '
names docs/man/kivclaim.1 '^\.TH '
names docs/man/kivclaim.7 '^\.TH '
names contract/installed_files 'libkivclaim\.so\.[0-9]+\.'

# Nowhere else: CMake reads it out of the header.
! grep -nE 'VERSION [0-9]+\.[0-9]+\.[0-9]+' CMakeLists.txt || wrong=1
exit "$wrong"
