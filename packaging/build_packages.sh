#!/usr/bin/env bash
# Builds the Debian packages from the tracked files as they are, in a clean copy: build_packages.sh DIRECTORY. The
# packages are written to DIRECTORY and built in the copy, DIRECTORY/source.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
directory=$1

# The same values for every build of this revision.
SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct)
KIVCLAIM_REVISION=$(git -C "$root" describe --always --dirty --abbrev=12 --match=)
export SOURCE_DATE_EPOCH KIVCLAIM_REVISION LC_ALL=C.UTF-8 TZ=UTC
umask 022

rm -rf "$directory"
mkdir -p "$directory/source"
git -C "$root" ls-files -z | tar -C "$root" --null -T - -c | tar -C "$directory/source" -x
cd "$directory/source"
dpkg-buildpackage --build=binary --no-sign >../build.log 2>&1 || { tail -n 40 ../build.log >&2 && exit 1; }
