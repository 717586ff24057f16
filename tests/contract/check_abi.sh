#!/usr/bin/env bash
# Compares the binary contract of a library that has debug information with the dump of the release: check_abi.sh DUMP
# LIBRARY. Which symbols there are is check_symbols.sh's business.
#
# With the toolchain of the dump everything in it counts. Of another toolchain's dump the shared facts are compared, of
# the classes that both have: which ones without slots get into a dump is up to compiler and abidw.
set -euo pipefail
export LC_ALL=C
here=$(dirname "${BASH_SOURCE[0]}")
dump=$1 library=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# only_of CLASSES FACTS
only_of() {
    awk -F ': ' 'NR == FNR { wanted[$1]; next } $1 in wanted' "$1" "$2"
}

classes() {
    sed 's/: .*//' "$1" | sort -u
}

compare_facts() {
    "$here/shared_facts.sh" "$dump" >"$work/release"
    "$here/shared_facts.sh" "$work/current.abi" >"$work/current"
    comm -12 <(classes "$work/release") <(classes "$work/current") >"$work/both"
    # Slots and numbers are what hosts call and pass: a dump without them hides something.
    grep -E ': slot |^(.*::)?ZTFI_[A-Z_]+: ' "$work/release" | sed 's/: .*//' | sort -u | comm -23 - "$work/both" |
        sed 's/^/missing: /' | grep . && return 1
    only_of "$work/both" "$work/release" >"$work/release.both"
    only_of "$work/both" "$work/current" >"$work/current.both"
    comm -23 "$work/release.both" "$work/current.both" | sed 's/^/lost: /' >"$work/changes"
    comm -13 "$work/release.both" "$work/current.both" | sed 's/^/new: /' >>"$work/changes"
    cat "$work/changes"
    [ ! -s "$work/changes" ] || return 1
    echo "$(wc -l <"$work/release.both") facts of $(wc -l <"$work/both") types"
}

comparison=$("$here/comparison.sh" "$library")
echo "$comparison"
"$here/dump_abi.sh" "$library" >"$work/current.abi"
compare=(abidiff --harmless --no-unreferenced-symbols "$dump" "$work/current.abi")
[[ $comparison == exact:* ]] || compare=(compare_facts)
if ! "${compare[@]}"; then
    echo "The binary contract of $(basename "$library") is not that of $dump, see above."
    echo "If hosts are meant to see this change, renew the dump: ./dev contract --accept"
    exit 1
fi
echo 'no change'
