#!/usr/bin/env bash
# Makes an archive of a clean Debian with a compiler and build tools: clean_root.sh ARCHIVE. Run it as root. It takes
# packages from the same mirror as this machine. Does nothing when the archive exists.
set -euo pipefail
archive=$1
release=bookworm
unfinished=${archive%.tar}.unfinished.tar
[ ! -e "$archive" ] || exit 0

sources=$("$(dirname "${BASH_SOURCE[0]}")/debian_sources.sh" "$release")
mmdebstrap --variant=minbase --skip=cleanup/apt/lists --include=g++,cmake,make "$release" "$unfinished" \
    "$sources" >"$archive.log" 2>&1 || { tail -n 20 "$archive.log" >&2 && exit 1; }
mv "$unfinished" "$archive"
