#!/usr/bin/env bash
# Looks at what an installation consists of: installed_tree_test.sh BUILD PREFIX.
set -euo pipefail
export LC_ALL=C
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
build=$1 prefix=$2

cd "$prefix"
if ! diff "$root/contract/installed_files" <("$here/installed_files.sh" .); then
    echo "The installed files are not those of contract/installed_files, see above: < missing, > new."
    echo "If people are meant to see this change, renew the list: ./dev contract --accept"
    exit 1
fi

soname() {
    readelf -d "$1" | sed -nE 's/.*\(SONAME\).*\[(.*)\]/\1/p'
}
for library in libkivclaim.so.1 libkivclaim_kernel.so.1 libztfi_pdk.so.4.4; do
    library_file=lib/$library
    [ "$(soname "$library_file")" = "$library" ] || { echo "$library calls itself '$(soname "$library_file")'" && exit 1; }
    readelf -d "$library_file" | grep -E 'FLAGS.*\bNOW\b' >/dev/null || { echo "$library is bound lazily" && exit 1; }
    ! readelf -d "$library_file" | grep -w SYMBOLIC || { echo "$library prefers its own symbols to the process's" && exit 1; }
done
for file in lib/libkivclaim.so.1 lib/libkivclaim_kernel.so.1 lib/libztfi_pdk.so.4.4 bin/kivclaim; do
    ! readelf -d "$file" | grep -E 'RPATH|RUNPATH' || { echo "$file has a run path" && exit 1; }
done
for file in "$build"/claim/libkivclaim.so.1 "$build"/tools/kivclaim; do
    ! readelf -d "$file" | grep -E 'R(UN)?PATH.*(\[:|::|:\])' || { echo "$file loads from the current directory" && exit 1; }
done
if grep -rnF -e "$root" -e "$build" -e "$prefix" .; then
    echo 'the files above name the directory that they were built or installed in' && exit 1
fi

# The command names the page of quirks that was installed with it.
empty_machine=$(mktemp -d)
trap 'rm -rf "$empty_machine"' EXIT
mkdir -p "$empty_machine/sys/class/block"
LD_LIBRARY_PATH=lib bin/kivclaim audit --no-warn --sysroot "$empty_machine" /dev/null |
    grep -F "(see $(pwd -P)/share/doc/kivclaim/quirks.md)" >/dev/null || { echo 'audit names no installed page' && exit 1; }

# The pages find each other, the pictures and the examples. The sources that they link to as well are not installed.
cd share/doc/kivclaim
for page in *.md docs/*.md; do
    while IFS= read -r link; do
        [ -e "$(dirname "$page")/$link" ] || { echo "$page: the link to $link leads nowhere" && exit 1; }
    done < <(grep -oE '\]\([^):#]+' "$page" | cut -c 3- | grep -E '\.(md|svg)$|^(\.\./)?examples/' || true)
done
