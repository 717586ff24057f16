#!/usr/bin/env bash
# Compares what a library exports with the golden list: check_symbols.sh exact|any-compiler LIST LIBRARY.
#
# Tables and type information of the framework's header code are in every library that uses them, and which of them that
# are is up to compiler and optimisation. `exact` compares them as well, `any-compiler` leaves them out.
set -euo pipefail
export LC_ALL=C
here=$(dirname "${BASH_SOURCE[0]}")
mode=$1 list=$2 library=$3

header_code='^_ZT[ISTV]N12ztfi_pdk_4_4'
relevant() {
    case $mode in
        exact) cat ;;
        any-compiler) grep -vE "$header_code" ;;
        *) echo "'$mode' is no mode: take exact or any-compiler" >&2 && return 2 ;;
    esac
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
