#!/usr/bin/env bash
# Prints the binary contract of a library with debug information: dump_abi.sh LIBRARY. Without anything that depends on
# the machine.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# What compilers hand to constructors and destructors besides `this` is told of other ones by each release of abidw; and
# it counts in the hashes, which newer releases write.
without_hidden_parameters() {
    awk '/<function-decl / { hidden = 0 }
        / is-artificial=/ && hidden++ { next }
        { sub(/ hash='\''[^'\'']*'\''/, ""); print }'
}

abidw --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-parameter-names \
    --exported-interfaces-only --drop-undefined-syms --suppr "$root/contract/private_types.abignore" "$1" |
    without_hidden_parameters
