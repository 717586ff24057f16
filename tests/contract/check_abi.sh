#!/usr/bin/env bash
# Compares the binary contract of a library that has debug information with the dump of the release: check_abi.sh DUMP
# LIBRARY. Which symbols there are is check_symbols.sh's business.
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
dump=$1 library=$2

current=$(mktemp --suffix=.abi)
trap 'rm -f "$current"' EXIT
"$here/dump_abi.sh" "$library" >"$current"
if ! abidiff --harmless --no-unreferenced-symbols "$dump" "$current"; then
    echo "The binary contract of $(basename "$library") is not that of $dump, see above."
    echo "If hosts are meant to see this change, renew the dump: ./dev contract --accept"
    exit 1
fi
echo 'no change'
