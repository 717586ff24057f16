#!/usr/bin/env bash
# Makes a release: release.sh [--check] VERSION. Start it as `./dev release VERSION`. With --check, it only checks
# whether the release can be made. The work is done in a clone in build/dist/VERSION; commit and tag are fetched into
# this tree after the packages have passed their test. Nothing is pushed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD

die() {
    printf './dev: release: %s\n' "$1" >&2
    exit 2
}

# The version in claim/kiv_version.h, the only place where it is defined.
header=claim/kiv_version.h
header_version() {
    sed -nE 's/^#define KIVCLAIM_VERSION_(MAJOR|MINOR|PATCH) ([0-9]+)$/\2/p' "$header" | paste -sd .
}

# later ONE OTHER: ONE is a later version than OTHER.
later() {
    [ "$1" != "$2" ] && [ "$(printf '%s\n' "$1" "$2" | sort -V | tail -n 1)" = "$1" ]
}

last_release() {
    git tag --list 'v*' | sed -nE 's/^v([0-9]+\.[0-9]+\.[0-9]+)$/\1/p' | sort -V | tail -n 1
}

check_request() {
    local last
    [ $# -le 1 ] || die "'$2' is not understood; it takes one VERSION: ./dev release 1.2.0"
    # Two digits each after the first number: KIVCLAIM_VERSION_NUMBER counts on that.
    [[ ${1:-} =~ ^[1-9][0-9]*(\.(0|[1-9][0-9]?)){2}$ ]] || die "'${1:-}' is no version: three numbers, such as 1.2.0"
    [ -z "$(git status --porcelain)" ] || die 'the tree has changes: commit or stash them, and try again'
    git symbolic-ref --quiet HEAD >/dev/null || die 'no branch is checked out: check out the one to release from'
    ! git rev-parse --verify --quiet "refs/tags/v$1" >/dev/null || die "there is a tag v$1: take a later version"
    last=$(last_release)
    [ -z "$last" ] || later "$1" "$last" || die "$1 is not later than the last release, $last: take a later version"
    [ "$1" = "$(header_version)" ] || later "$1" "$(header_version)" ||
        die "$1 is not later than $(header_version), which $header names: take a later version"
    grep -m 1 '^## ' CHANGELOG.md | grep -qiE '^## (.*, )?not released$' ||
        die "CHANGELOG.md does not begin with changes to release: write '## Not released' and what has changed"
}

# replace FILE EXPRESSION PATTERN: edits the file with sed; afterwards a line must match the pattern.
replace() {
    sed -i -E "$2" "$1"
    grep -qE -- "$3" "$1" || die "$1 holds no version in the form that is known: look for $3"
}

# Writes the version and the day into all files that name them.
set_version() {
    local version=$1 day=$2 number part parts name
    IFS=. read -ra parts <<<"$version"
    for number in 0 1 2; do
        name=(MAJOR MINOR PATCH)
        part=${name[$number]}
        replace "$header" "s/^(#define KIVCLAIM_VERSION_$part) [0-9]+$/\\1 ${parts[$number]}/" \
            "^#define KIVCLAIM_VERSION_$part ${parts[$number]}\$"
    done
    replace CHANGELOG.md "0,/^## /s/^## .*/## $version, $day/" "^## $version, $day\$"
    for part in docs/man/kivclaim.1 docs/man/kivclaim.7; do
        replace "$part" "s/^(\\.TH KIVCLAIM [17]) [^ ]+ \"kivclaim [^\"]+\"/\\1 $day \"kivclaim $version\"/" \
            "^\\.TH KIVCLAIM [17] $day \"kivclaim $version\""
    done
    replace contract/installed_files "s/^(lib\\/libkivclaim(_kernel)?\\.so)\\.[0-9]+(\\.[0-9]+){2}\$/\\1.$version/" \
        "^lib/libkivclaim\\.so\\.$version\$"
}

# The unreleased entry gets version and day; if there is none, as after a release, a new one is added.
set_debian_version() {
    local version=$1 date=$2
    if ! head -n 1 debian/changelog | grep -q ' UNRELEASED;'; then
        {
            printf 'kivclaim (%s-1) UNRELEASED; urgency=medium\n\n  * New release; its own list of changes is ' "$version"
            printf 'changelog.gz.\n\n -- kivclaim developers <kivclaim@kivclaim.invalid>  %s\n\n' "$date"
            cat debian/changelog
        } >debian/changelog.new
        mv debian/changelog.new debian/changelog
    fi
    replace debian/changelog "1s/\\([^)]*\\) UNRELEASED;/($version-1) unstable;/;0,/^ -- /s/^( -- .*>)  .*/\\1  $date/" \
        "^kivclaim \\($version-1\\) unstable;"
}

# The section of CHANGELOG.md about this version.
changes() {
    awk -v heading="## $1, " '/^## /{ inside = index($0, heading) == 1; next } inside' CHANGELOG.md | sed '/./,$!d'
}

# The archive is reproducible: git gives every file the time of the commit, and gzip -n stores neither time nor name.
source_archive() {
    git archive --format=tar --add-virtual-file="kivclaim-$1/REVISION:$(git rev-parse --short=12 HEAD)" \
        --prefix="kivclaim-$1/" HEAD | gzip -9n >"$2"
}

# Puts the files to publish into $dist: the packages that `./dev package` built twice and tested, and the source
# archive.
build_all() {
    local archive=kivclaim-$1.tar.gz clean=$root/build/package/bookworm.tar
    source_archive "$1" "$dist/$archive"
    (cd "$(mktemp -d "$dist/again.XXXXXX")" && git clone -q "$dist/tree" tree && cd tree && source_archive "$1" "../$archive")
    cmp "$dist/$archive" "$dist"/again.*/"$archive" || die 'the source archive differs when it is made again'
    rm -rf "$dist"/again.*
    mkdir -p build/package
    [ ! -e "$clean" ] || cp "$clean" build/package
    ./dev package >&2
    cp build/package/packages/*.deb "$dist"
    (cd "$dist" && sha256sum -- *.deb *.tar.gz >SHA256SUMS)
}

check_only=false
if [ "${1:-}" = --check ]; then
    check_only=true
    shift
fi
check_request "$@"
[ "$check_only" = false ] || exit 0
version=$1
dist=$root/build/dist/$version
branch=$(git symbolic-ref --short HEAD)
seconds=${SOURCE_DATE_EPOCH:-$(date +%s)}
rm -rf "$dist"
mkdir -p "$dist"
git clone -q "$root" "$dist/tree"
cd "$dist/tree"
for key in user.name user.email; do
    git config "$key" "$(git -C "$root" config "$key")"
done

set_version "$version" "$(date -u -d "@$seconds" +%F)"
set_debian_version "$version" "$(LC_ALL=C date -u -d "@$seconds" '+%a, %d %b %Y %T +0000')"
tests/version_test.sh "$version" >&2 || die 'a file names another version: see above'
export GIT_COMMITTER_DATE="@$seconds +0000" GIT_AUTHOR_DATE="@$seconds +0000"
git commit -qam "Release $version" -m "$(changes "$version")"
build_all "$version"
# Markdown's headings would be comments to git.
git tag -a "v$version" --cleanup=verbatim -m "kivclaim $version

$(changes "$version")"

cd "$root"
[ -z "$(git status --porcelain)" ] || die "the tree was changed meanwhile: what was built is in build/dist/$version"
git pull -q --ff-only "$dist/tree" "$branch"
git fetch -q "$dist/tree" "refs/tags/v$version:refs/tags/v$version"
rm -rf "$dist/tree"
printf 'kivclaim %s is committed and tagged as v%s. To publish:\n  git push origin %s v%s\n' \
    "$version" "$version" "$branch" "$version"
printf '  %s\n' "build/dist/$version"/*
