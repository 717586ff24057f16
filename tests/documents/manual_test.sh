#!/usr/bin/env bash
# The manual page kivclaim(1) names every command and every option that the command's help names, and no other option:
# manual_test.sh KIVCLAIM PAGE.
set -euo pipefail
export LC_ALL=C
here=$(dirname "${BASH_SOURCE[0]}")
kivclaim=$1 page=$2

commands=$("$here/help_words.sh" "$kivclaim" commands)
[ "$(wc -l <<<"$commands")" -ge 8 ] || { echo "the help names only: $commands" && exit 1; }
options=$(for command in $commands; do "$here/help_words.sh" "$kivclaim" options "$command"; done | sort -u)

text=$(mandoc -T ascii "$page" | col -bx)
# An entry begins a line: "-a, --all" or "--trace LEVEL".
entries=$(grep -oE '^ +(-[A-Za-z], )?--?[A-Za-z-]+' <<<"$text" | tr ', ' '\n' | grep -E '^-' | sort -u)
if ! diff <(echo "$options") <(echo "$entries"); then
    echo "The options of $page are not those of 'kivclaim --help', see above: < missing, > unknown." && exit 1
fi
for command in $commands; do
    grep -qE "^ +$command( |\$)" <<<"$text" || { echo "$page has no entry for the command '$command'" && exit 1; }
done
