#!/usr/bin/env bash
# Compares what a library exports with the golden list: check_symbols.sh shipped-build|any-build LIST LIBRARY.
#
# Tables and type information of the framework's header code are in every library that uses them, and which of them that
# are is up to compiler and optimisation. They are compared as well in the build that is shipped where it comes from the
# toolchain of the list, and left out everywhere else.
set -euo pipefail
export LC_ALL=C
here=$(dirname "${BASH_SOURCE[0]}")
mode=$1 list=$2 library=$3

case $mode in
    shipped-build) comparison=$("$here/comparison.sh" "$library") ;;
    any-build) comparison='shared: not the build that is shipped' ;;
    *) echo "'$mode' is no mode: take shipped-build or any-build" >&2 && exit 2 ;;
esac
echo "$comparison"

header_code='^_ZT[ISTV]N12ztfi_pdk_4_4'
relevant() {
    if [[ $comparison == exact:* ]]; then cat; else grep -vE "$header_code"; fi
}

expected=$(relevant <"$list")
exported=$("$here/exported_symbols.sh" "$library" | relevant)
lost=$(comm -23 <(echo "$expected") <(echo "$exported"))
added=$(comm -13 <(echo "$expected") <(echo "$exported"))
if [ -n "$lost$added" ]; then
    echo "The exported symbols of $(basename "$library") are not those of $list:"
    [ -z "$lost" ] || c++filt <<<"$lost" | sed 's/^/  lost: /'
    [ -z "$added" ] || c++filt <<<"$added" | sed 's/^/  new: /'
    echo "If hosts are meant to see this change, renew the list: ./dev contract --accept"
    exit 1
fi
echo "$(wc -l <<<"$exported") symbols as listed"
