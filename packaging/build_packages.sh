#!/usr/bin/env bash
# Builds the Debian packages of the tracked files as they are, in a clean copy: build_packages.sh FOLDER. The packages
# appear in FOLDER; the copy, FOLDER/source, is what they were built in.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
folder=$1

# The same for everybody who builds this revision, wherever and whenever.
SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct)
KIVCLAIM_REVISION=$(git -C "$root" describe --always --dirty --abbrev=12 --match=)
export SOURCE_DATE_EPOCH KIVCLAIM_REVISION LC_ALL=C.UTF-8 TZ=UTC
umask 022

rm -rf "$folder"
mkdir -p "$folder/source"
git -C "$root" ls-files -z | tar -C "$root" --null -T - -c | tar -C "$folder/source" -x
cd "$folder/source"
dpkg-buildpackage --build=binary --no-sign >../build.log 2>&1 || { tail -n 40 ../build.log >&2 && exit 1; }
