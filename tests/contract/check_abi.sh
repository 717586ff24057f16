#!/usr/bin/env bash
# Compares the binary contract of a library that has debug information with the dump of the release: check_abi.sh DUMP
# LIBRARY. Which symbols there are is check_symbols.sh's business.
#
# With the toolchain of the dump everything in it counts. With another one, what is inside the types of the C++ library
# does not; their sizes do, by the offsets of the fields that come after them.
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
dump=$1 library=$2

comparison=$("$here/comparison.sh" "$library")
echo "$comparison"
suppressions=()
[[ $comparison == exact:* ]] || suppressions=(--suppressions "$here/../../contract/foreign_types.abignore")

current=$(mktemp --suffix=.abi)
trap 'rm -f "$current"' EXIT
"$here/dump_abi.sh" "$library" >"$current"
if ! abidiff --harmless --no-unreferenced-symbols "${suppressions[@]}" "$dump" "$current"; then
    echo "The binary contract of $(basename "$library") is not that of $dump, see above."
    echo "If hosts are meant to see this change, renew the dump: ./dev contract --accept"
    exit 1
fi
echo 'no change'
