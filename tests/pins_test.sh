#!/usr/bin/env bash
# Every test exists that a page or a comment names as the pin of what it says.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

existing=$({
    grep -hoE 'TEST(_F|_P)?\([A-Za-z0-9]+, [A-Za-z0-9]+' -r tests --include='*.cpp' | sed -E 's/TEST(_F|_P)?\(//; s/, /./'
    grep -hoE 'add_test\(NAME [A-Za-z0-9.]+' -r tests --include='*.cmake' --include=CMakeLists.txt | sed 's/.* //'
} | sort -u)
named=$({
    grep -ohE "\`[A-Z][A-Za-z0-9]+\.[A-Z][A-Za-z0-9]+\`" docs/*.md SECURITY.md | tr -d "\`"
    # A comment may go on in the next line behind "Pinned by".
    cat claim/*.cpp claim/*.h modules/*.cpp modules/*.h framework/*.h host/*.cpp host/*.h |
        sed -E 's#^ *// ?##' | tr '\n' ' ' | grep -oE 'Pinned by +[A-Z][A-Za-z0-9]+\.[A-Z][A-Za-z0-9]+' | sed -E 's/Pinned by +//'
} | sort -u)

[ "$(wc -l <<<"$named")" -gt 30 ] || { echo "only $(wc -l <<<"$named") pins were found: is the search wrong?"; exit 1; }
missing=$(comm -13 <(printf '%s\n' "$existing") <(printf '%s\n' "$named"))
if [ -n "$missing" ]; then
    printf 'no such test:\n%s\n' "$missing"
    exit 1
fi

# Every quirk that the audit can name has its entry, and every entry with a short name can be named.
entries=$(grep -oE "^\`[a-z-]+\` \*\*" docs/quirks.md | grep -oE '[a-z-]+' | sort -u)
named=$(grep -ohE '"[a-z]+(-[a-z]+)+"[,} ]' tools/known_quirks.cpp | grep -oE '[a-z]+(-[a-z]+)+' | grep -v '^device-mapper$' | sort -u)
if [ -z "$named" ] || [ "$named" != "$entries" ]; then
    printf 'the short names of docs/quirks.md and of the audit differ:\n'
    diff <(printf '%s\n' "$entries") <(printf '%s\n' "$named")
    exit 1
fi
