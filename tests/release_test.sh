#!/usr/bin/env bash
# What `./dev release` does, in a small tree of its own: release_test.sh CASE. Building the packages is played.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export HOME=$work TZ=UTC SOURCE_DATE_EPOCH=1700000000
touch "$work/output" "$work/errors"

wrong() {
    printf '%s\n' "$@"
    cat "$work/output" "$work/errors"
    exit 1
}

# file PATH: its text is on standard input.
file() {
    mkdir -p "$(dirname "$1")"
    cat >"$1"
}

commit() {
    git add -A
    git commit -qm "$1"
}

make_tree() {
    mkdir "$work/tree"
    cd "$work/tree"
    file claim/kiv_version.h <<<$'#define KIVCLAIM_VERSION_MAJOR 1\n#define KIVCLAIM_VERSION_MINOR 2\n#define KIVCLAIM_VERSION_PATCH 0'
    file CHANGELOG.md <<<$'# Changes\n\n## 1.2.0, not released\n\n- `list` is faster.\n\n## 1.1.9, 2020-01-01\n\n- Older.'
    file docs/man/kivclaim.1 <<<'.TH KIVCLAIM 1 2020-01-02 "kivclaim 1.1.9" "User Commands"'
    file docs/man/kivclaim.7 <<<'.TH KIVCLAIM 7 2020-01-02 "kivclaim 1.1.9" "Miscellaneous Information"'
    file contract/installed_files <<<$'lib/libkivclaim.so.1\nlib/libkivclaim.so.1.1.9\nlib/libztfi_pdk.so.4.4'
    file debian/changelog <<<$'kivclaim (1.1.9-1) UNRELEASED; urgency=medium\n\n  * Packages.\n\n -- Somebody <s@s.invalid>  Wed, 01 Jan 2020 00:00:00 +0000'
    file tests/version_test.sh <<<$'#!/bin/sh\ngrep -q "^## $1, " CHANGELOG.md'
    file dev <<<$'#!/bin/sh\nset -e\nmkdir -p build/package/packages\ngit describe --always --match= >build/package/packages/kivclaim.deb'
    file .gitignore <<<build/
    file packaging/release.sh <"$root/packaging/release.sh"
    chmod +x dev tests/version_test.sh packaging/release.sh
    git init -q -b main
    git config user.name tester
    git config user.email tester@tester.invalid
    commit 'First'
}

# refuses LINE ARGUMENT...: status 2, this one line, and the tree is as it was.
refuses() {
    local line=$1 status=0 before
    shift
    before=$(git rev-parse HEAD && git tag)
    packaging/release.sh "$@" >"$work/output" 2>"$work/errors" || status=$?
    [ "$status" = 2 ] || wrong "release $*: the status is $status"
    diff <(printf './dev: release: %s\n' "$line") "$work/errors" || wrong "release $*"
    [ "$before" = "$(git rev-parse HEAD && git tag)" ] || wrong "release $*: there is a commit or a tag"
}

releases() {
    packaging/release.sh "$1" >"$work/output" 2>"$work/errors" || wrong "release $1 fails"
}

# holds FILE LINE...: these are its first lines.
holds() {
    local path=$1
    shift
    diff <(printf '%s\n' "$@") <(head -n $# "$path") || wrong "$path differs"
}

make_tree
case $1 in
    made)
        releases 1.2.0
        holds claim/kiv_version.h '#define KIVCLAIM_VERSION_MAJOR 1' '#define KIVCLAIM_VERSION_MINOR 2' '#define KIVCLAIM_VERSION_PATCH 0'
        holds CHANGELOG.md '# Changes' '' '## 1.2.0, 2023-11-14' '' "- \`list\` is faster."
        holds docs/man/kivclaim.1 '.TH KIVCLAIM 1 2023-11-14 "kivclaim 1.2.0" "User Commands"'
        holds docs/man/kivclaim.7 '.TH KIVCLAIM 7 2023-11-14 "kivclaim 1.2.0" "Miscellaneous Information"'
        holds contract/installed_files lib/libkivclaim.so.1 lib/libkivclaim.so.1.2.0 lib/libztfi_pdk.so.4.4
        holds debian/changelog 'kivclaim (1.2.0-1) unstable; urgency=medium' '' '  * Packages.' '' \
            ' -- Somebody <s@s.invalid>  Tue, 14 Nov 2023 22:13:20 +0000'
        [ "$(git rev-parse HEAD)" = "$(git rev-parse 'v1.2.0^{commit}')" ] || wrong 'the tag is elsewhere'
        diff <(printf '%s\n' 'kivclaim 1.2.0' '' "- \`list\` is faster.") <(git tag -l --format='%(contents)' v1.2.0)
        diff <(printf '%s\n' 'Release 1.2.0' '' "- \`list\` is faster." '') <(git log -1 --format=%B)
        [ -z "$(git status --porcelain)" ] || wrong 'the tree has changes'
        cd build/dist/1.2.0
        diff <(printf '%s\n' SHA256SUMS kivclaim-1.2.0.tar.gz kivclaim.deb) <(printf '%s\n' *)
        sha256sum --quiet -c SHA256SUMS
        [ "$(cat kivclaim.deb)" = "$(git rev-parse --short HEAD)" ] || wrong 'the packages are of another commit'
        tar -xzf kivclaim-1.2.0.tar.gz
        [ "$(cat kivclaim-1.2.0/REVISION)" = "$(git rev-parse --short=12 HEAD)" ] || wrong 'the archive names no revision'
        rm kivclaim-1.2.0/REVISION
        diff <(git -C "$work/tree" ls-files | LC_ALL=C sort) <(cd kivclaim-1.2.0 && find . -type f | cut -c3- | LC_ALL=C sort)
        ;;
    next)
        releases 1.2.0
        sed -i '0,/^## /s/^## .*/## Not released\n\n- More.\n\n&/' CHANGELOG.md
        commit 'More'
        releases 1.10.0
        holds CHANGELOG.md '# Changes' '' '## 1.10.0, 2023-11-14' '' '- More.' '' '## 1.2.0, 2023-11-14'
        holds claim/kiv_version.h '#define KIVCLAIM_VERSION_MAJOR 1' '#define KIVCLAIM_VERSION_MINOR 10' '#define KIVCLAIM_VERSION_PATCH 0'
        holds debian/changelog 'kivclaim (1.10.0-1) unstable; urgency=medium' '' \
            '  * New release; its own list of changes is changelog.gz.' '' \
            ' -- kivclaim developers <kivclaim@kivclaim.invalid>  Tue, 14 Nov 2023 22:13:20 +0000' '' \
            'kivclaim (1.2.0-1) unstable; urgency=medium'
        ;;
    refused)
        refuses "'' is no version: three numbers, such as 1.2.0"
        refuses "'v1.2.0' is no version: three numbers, such as 1.2.0" v1.2.0
        refuses "'1.2.100' is no version: three numbers, such as 1.2.0" 1.2.100
        refuses "'now' is not understood; it takes one VERSION: ./dev release 1.2.0" 1.2.0 now
        refuses '1.1.10 is not later than 1.2.0, which claim/kiv_version.h names: take a later version' 1.1.10
        echo more >>dev
        refuses 'the tree has changes: commit or stash them, and try again' 1.2.0
        git checkout -q dev
        git tag v1.3.0
        refuses 'there is a tag v1.3.0: take a later version' 1.3.0
        refuses '1.2.0 is not later than the last release, 1.3.0: take a later version' 1.2.0
        sed -i 's/^## 1.2.0.*/## 1.2.0, 2020-01-02/' CHANGELOG.md
        commit 'Released by hand'
        refuses "CHANGELOG.md does not begin with changes to release: write '## Not released' and what has changed" 1.4.0
        git checkout -q --detach
        refuses 'no branch is checked out: check out the one to release from' 1.4.0
        ;;
    failed)
        file dev <<<$'#!/bin/sh\nexit 1'
        commit 'Packages fail'
        before=$(git rev-parse HEAD)
        ! packaging/release.sh 1.2.0 >"$work/output" 2>"$work/errors" || wrong 'the release is made'
        [ "$before" = "$(git rev-parse HEAD)$(git tag)$(git status --porcelain)" ] || wrong 'the tree differs'
        ;;
    *) echo "'$1' is no case" && exit 2 ;;
esac
