#!/usr/bin/env bash
# Says how a library is compared with the lists and dumps in contract/: comparison.sh LIBRARY. `exact` where it was built
# by their toolchain, `shared` elsewhere: what of it every toolchain must have alike. With --toolchain in front it
# prints the toolchain alone, in the words of contract/toolchain.
set -euo pipefail
contract=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../contract" && pwd)

# toolchain LIBRARY: what shapes a dump. Sanitized or other builds of the same compiler are their callers' business.
toolchain() {
    local compiler ace
    compiler=$(readelf --string-dump=.comment "$1" | sed -nE 's/.*GCC: \(.*\) ([0-9]+)\..*/g++ \1/p' | sort -u | paste -s -d ' ')
    ace=$(readelf --dynamic --wide "$1" | sed -nE 's/.*\[libACE-(.*)\.so\]/ACE \1/p')
    printf '%s, %s, %s\n' "${compiler:-another compiler than g++}" "${ace:-no ACE}" \
        "$(abidw --version | sed -E 's/^abidw: ([0-9]+\.[0-9]+).*/abidw \1/')"
}

if [ "$1" = --toolchain ]; then
    toolchain "$2"
    exit
fi
reference=$(cat "$contract/toolchain")
present=$(toolchain "$1")
if [ "$present" = "$reference" ]; then
    echo "exact: this is the toolchain of contract/, $reference"
else
    echo "shared: this is $present; contract/ is of $reference"
fi
