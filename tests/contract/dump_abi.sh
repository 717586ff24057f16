#!/usr/bin/env bash
# Prints the binary contract of a library with debug information: dump_abi.sh LIBRARY. Without anything that depends on
# the machine.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

exec abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-parameter-names \
    --exported-interfaces-only --drop-undefined-syms --suppr "$root/contract/private_types.abignore" "$1"
