#!/usr/bin/env bash
# The pictures are what their sources give, and the arrows between the rooms are the includes between them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

docs/draw.sh --check

includes=$(for room in framework claim modules host machine tools examples; do
    grep -rhoE '^#include "(framework|claim|modules|host|machine|tools)/' --include='*.h' --include='*.cpp' "$room" |
        sed "s,#include \",$room -> ,; s,/,,"
done | awk '$1 != $3' | sort -u)
arrows=$(grep -E '^ +[a-z]+ -> [a-z]+$' docs/rooms.dot | sed 's/^ *//' | sort -u)
if [ -z "$arrows" ] || [ "$includes" != "$arrows" ]; then
    printf 'docs/rooms.dot does not show the includes between the rooms (<: includes, >: arrows):\n'
    diff <(printf '%s\n' "$includes") <(printf '%s\n' "$arrows")
    exit 1
fi
