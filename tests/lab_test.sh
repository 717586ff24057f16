#!/usr/bin/env bash
# ./dev lab refuses, before it builds anything: unknown releases and scenes, with the list of known ones, and scenes that
# would never run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
cp -r lab "$tree"
# Three are enough, and another scene of the lab needs no change here.
find "$tree/lab/guest/scenes" -type f ! -name '??_maps.sh' ! -name '??_names.sh' ! -name '??_volumes.sh' -delete

# refuses TEXT ARGUMENT...: exit status 2, nothing on standard output, and this one line on standard error.
refuses() {
    local expected=$1 status=0
    shift
    "$tree/lab/run" --check "$@" >"$tree/output" 2>"$tree/errors" || status=$?
    if [ "$status" != 2 ] || [ -s "$tree/output" ] || [ "$(cat "$tree/errors")" != "lab: $expected" ]; then
        printf 'lab/run --check %s: status %d\n' "$*" "$status"
        cat "$tree/output" "$tree/errors"
        printf 'expected: lab: %s\n' "$expected"
        exit 1
    fi
}

"$tree/lab/run" --check
"$tree/lab/run" --check --release bullseye --capture volumes
scenes='maps names volumes'
refuses "'buster' is no release that the lab knows: take one of bullseye bookworm trixie" --release buster
refuses "'' is no release that the lab knows: take one of bullseye bookworm trixie" --release
refuses "'volume' is no scene: take one of $scenes" maps volume
touch "$tree/lab/guest/scenes/maps_too.sh"
refuses 'lab/guest/scenes/maps_too.sh would never run: name it NN_name.sh, with two digits for its place among the scenes'
mv "$tree/lab/guest/scenes/maps_too.sh" "$tree/lab/guest/scenes/11_maps.sh"
refuses "lab/guest/scenes/11_maps.sh would never run: there is another scene 'maps'"
mv "$tree/lab/guest/scenes/11_maps.sh" "$tree/lab/guest/scenes/11_maps_too.sh"
"$tree/lab/run" --check maps_too
