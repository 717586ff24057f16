#!/usr/bin/env bash
# Makes a clean Debian with a compiler and what builds programs, as an archive: clean_root.sh ARCHIVE. To be run as root.
# Takes its packages from where this machine takes them. Does nothing when the archive is there already.
set -euo pipefail
archive=$1
release=bookworm
unfinished=${archive%.tar}.unfinished.tar
[ ! -e "$archive" ] || exit 0

sources=$("$(dirname "${BASH_SOURCE[0]}")/debian_sources.sh" "$release")
mmdebstrap --variant=minbase --skip=cleanup/apt/lists --include=g++,cmake,make "$release" "$unfinished" \
    "$sources" >"$archive.log" 2>&1 || { tail -n 20 "$archive.log" >&2 && exit 1; }
mv "$unfinished" "$archive"
