#!/usr/bin/env bash
# Prints the examples of README.md that show a machine, from real output: readme_examples.sh KIVCLAIM. The machine is the
# one that was captured in the lab with Debian 12. With --check before KIVCLAIM, says instead whether README.md holds
# what is printed; exit status 1 when it does not.
set -euo pipefail
export LC_ALL=C.UTF-8
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
check=false
[ "${1:-}" != --check ] || { check=true && shift; }
[ $# -eq 1 ] || { echo "usage: readme_examples.sh [--check] KIVCLAIM" >&2 && exit 2; }
kivclaim=$1
machine=$(mktemp -d)
trap 'rm -rf "$machine"' EXIT
"$here/../tests/unpack_machine" "$here/../tests/captured/bookworm" "$machine"

# Prints the command as a reader would type it on the machine itself, then what it prints there.
example() {
    echo "\$ kivclaim $*"
    "$kivclaim" "$@" --sysroot "$machine" | sed 's/ *$//'
}

examples() {
    echo '```console not-run'
    example list --luns
    example list -T /dev/sdc /dev/sde /dev/sdo /dev/sdq
    echo '```'
}

shown=$(examples)
if ! $check; then
    printf '%s\n' "$shown"
elif [[ "$(<"$here/../README.md")" != *"$shown"* ]]; then
    echo 'README.md does not hold what docs/readme_examples.sh prints now; put this in the place of what it shows:'
    printf '%s\n' "$shown"
    exit 1
fi
