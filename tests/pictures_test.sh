#!/usr/bin/env bash
# The drawings match their sources, and the arrows between the directories are the includes between them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

docs/draw.sh --check

includes=$(for directory in framework claim modules host machine tools examples; do
    grep -rhoE '^#include "(framework|claim|modules|host|machine|tools)/' --include='*.h' --include='*.cpp' "$directory" |
        sed "s,#include \",$directory -> ,; s,/,,"
done | awk '$1 != $3' | sort -u)
arrows=$(grep -E '^ +[a-z]+ -> [a-z]+$' docs/directories.dot | sed 's/^ *//' | sort -u)
if [ -z "$arrows" ] || [ "$includes" != "$arrows" ]; then
    printf 'docs/directories.dot does not show the includes between the directories (<: includes, >: arrows):\n'
    diff <(printf '%s\n' "$includes") <(printf '%s\n' "$arrows")
    exit 1
fi
