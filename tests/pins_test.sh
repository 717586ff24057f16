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
    # A comment may continue in the next line after "Pinned by".
    cat claim/*.cpp claim/*.h modules/*.cpp modules/*.h framework/*.h host/*.cpp host/*.h host/runner/*.cpp host/runner/*.h |
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
named=$(grep -oE '"[a-z]+(-[a-z]+)+";' tools/quirk_names.h | tr -d '";' | sort -u)
if [ -z "$named" ] || [ "$named" != "$entries" ]; then
    printf 'the short names of docs/quirks.md and of the audit differ:\n'
    diff <(printf '%s\n' "$entries") <(printf '%s\n' "$named")
    exit 1
fi

# Every scene that a quirk was seen in exists and names the quirk, and what the scenes' tables name has its entry.
marks=''
while IFS= read -r entry; do
    seen=${entry##*Seen in the lab: }
    mark=''
    [[ $entry =~ ^\`([a-z-]+)\` ]] && mark=${BASH_REMATCH[1]}
    [[ $seen =~ marked\ \`([a-z-]+)\` ]] && mark=${BASH_REMATCH[1]}
    marks+="${mark:?no name for what was seen in the lab: $seen}"$'\n'
    for scene in $(grep -oE "\`[a-z_]+\`" <<<"${seen%, marked*}" | tr -d "\`"); do
        if ! grep -qE "(^|[ '|])$mark([ ']|\$)" lab/guest/scenes/[0-9][0-9]_"$scene".sh; then
            echo "the scene $scene does not show $mark, which docs/quirks.md says was seen there"
            exit 1
        fi
    done
done < <(awk -v RS= '/Seen in the lab: /{ gsub("\n", " "); print }' docs/quirks.md)
[ "$(wc -l <<<"$marks")" -gt 30 ] || { echo "only $(wc -l <<<"$marks") quirks were seen in the lab: is the search wrong?"; exit 1; }
unknown=$(awk -F '|' 'NF == 4 { gsub(" ", "", $4); print $4 }' lab/guest/scenes/*.sh | sort -u | grep -vxF "$marks" || true)
if [ -n "$unknown" ]; then
    printf 'named in the lab, but not in docs/quirks.md:\n%s\n' "$unknown"
    exit 1
fi
