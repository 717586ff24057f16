#!/usr/bin/env bash
# Every link between the pages leads to a file of the tree, and every anchor to a heading.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# The anchors of a page's headings, as Markdown viewers make them.
anchors_of() {
    sed -nE 's/^#+ +//p' "$1" | tr '[:upper:]' '[:lower:]' | sed -E "s/[^a-z0-9 _-]//g; s/ /-/g"
}

# A lambda in an example looks like a link.
without_code() {
    sed -E '/^\x60{3}/,/^\x60{3}/d' "$1"
}

count=0
bad=0
for page in *.md docs/*.md; do
    while IFS= read -r link; do
        count=$((count + 1))
        target=${link%%#*}
        path=$page
        [ -z "$target" ] || path=$(dirname "$page")/$target
        if [ ! -e "$path" ] || { [[ $link == *'#'* ]] && ! anchors_of "$path" | grep -qxF -- "${link#*#}"; }; then
            printf '%s: the link to %s leads nowhere\n' "$page" "$link"
            bad=1
        fi
    done < <(without_code "$page" | grep -oE '\]\([^)]+\)' | sed -E 's/^\]\(//; s/\)$//' | grep -vE '^[a-z]+:' || true)
done
[ $count -gt 30 ] || { printf 'only %d links were found: is the search wrong?\n' $count; exit 1; }
exit $bad
