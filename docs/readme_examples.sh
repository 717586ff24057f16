#!/usr/bin/env bash
# Prints the examples of README.md that show a machine, from real output: readme_examples.sh KIVCLAIM MACHINE. MACHINE is
# a directory with that machine, laid out as for lsblk --sysroot. With --check before them, says instead whether README
# holds what is printed; exit status 1 when it does not.
set -euo pipefail
export LC_ALL=C.UTF-8
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
check=false
[ "${1:-}" != --check ] || { check=true && shift; }
[ $# -eq 2 ] || { echo "usage: readme_examples.sh [--check] KIVCLAIM MACHINE" >&2 && exit 2; }
kivclaim=$1 machine=$2

# Prints the command as a reader would type it on the machine itself, then what it prints there.
example() {
    echo "\$ kivclaim $*"
    "$kivclaim" "$@" --sysroot "$machine" | sed 's/ *$//'
}

examples() {
    echo '```console not-run'
    example list -T
    example list --luns
    echo '```'
}

if ! $check; then
    examples
elif ! [[ "$(<"$here/../README.md")" == *"$(examples)"* ]]; then
    echo "README.md does not hold what readme_examples.sh prints now:"
    examples
    exit 1
fi
