#!/usr/bin/env bash
# Builds the reference pages into DIRECTORY/html. Fails when something in a public header has no text, and when a line
# of a public header's comments is on no page.
set -euo pipefail
directory=$(realpath -m "${1:?usage: build.sh DIRECTORY}")
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

public_headers() {
    grep -LE '^// .*(Not installed|Private to the bundled host)\.$' framework/*.h claim/*.h modules/*.h host/*.h machine/kiv_kernel_facts.h testkit/*.h
}

# What the pages say, in one line: without tags, source listings and the marks for special characters.
page_text() {
    find "$directory/html" -name '*.html' ! -name '*_8h_source.html' -exec cat {} + |
        sed -E 's/<[^>]*>//g; s/&lt;/</g; s/&gt;/>/g; s/&quot;/"/g; s/&(#160|nbsp);/ /g' |
        sed -E "s/&#39;/'/g; s/&amp;/\&/g" | tr -s ' \n' ' '
}

# The comments of public headers line by line, those about private parts and inside bodies left out.
comment_lines() {
    local header
    for header in $(public_headers); do
        sed -E -f docs/reference/comments.sed "$header" | awk '
            /^private:/ { isPrivate = 1 }
            /^(public|protected):|^}/ { isPrivate = 0 }
            /^#define .*\\$/ { isPrivate = 1 }
            /^( |    )?\/\/\/ [^\\]/ && !isPrivate { sub(/^ *\/\/\/ +/, ""); print }
            !/^}/ && / \/\/\/< / && !isPrivate { sub(/.* \/\/\/< +/, ""); print }'
    done | tr -s ' ' | sed 's,\\\\,\\,g' | tr -d '`'
}

rm -rf "$directory/html"
mkdir -p "$directory"
{
    cat docs/reference/Doxyfile
    printf 'OUTPUT_DIRECTORY = "%s"\n' "$directory"
} | doxygen -

page_text >"$directory/page_text"
comment_lines | awk -v pages="$directory/page_text" '
    BEGIN { getline text <pages }
    index(text, $0) == 0 { printf "on no reference page: %s\n", $0; missing++ }
    END {
        if (NR < 250) { printf "only %d lines of comments were found: is the search wrong?\n", NR; exit 1 }
        exit missing > 0
    }'
rm "$directory/page_text"
