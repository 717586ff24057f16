#!/usr/bin/env bash
# What ./dev cross says when it cannot begin: one line with the way out, and status 2. The commands that it asks about the
# machine are played here; nothing is built or mounted.
set -euo pipefail
tree=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/portability" "$work/bin"
cp "$tree/portability/cross" "$work/portability"

# plays COMMAND TEXT: the command prints the text, or does what it says.
plays() {
    printf '#!/bin/sh\n%s\n' "$2" >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}

failed=0
# refuses TEXT ARGUMENT...: the last line is to hold the text.
refuses() {
    local text=$1 output status=0
    shift
    output=$(PATH=$work/bin:$PATH "$work/portability/cross" "$@" 2>&1) || status=$?
    if [ "$status" != 2 ] || [[ $(tail -n 1 <<<"$output") != "cross: "*"$text"* ]]; then
        printf 'cross %s: status %s, and not [%s] but:\n%s\n' "$*" "$status" "$text" "$output"
        failed=1
    fi
}

plays id 'echo 0'
plays dpkg 'echo amd64'
plays unshare 'exit 0'
plays apt-get 'echo deb http://127.0.0.1:9/debian bookworm main'
plays df 'echo Avail; echo 100000'

refuses 'no architecture is given: take one of arm64, ppc64el, s390x'
refuses "'sparc' is no known architecture: take one of arm64, ppc64el, s390x" sparc
refuses "'--fast' is no option: give one architecture, arm64, ppc64el, s390x" --fast
refuses 'give one architecture at a time' arm64 s390x
refuses 'cannot reach http://127.0.0.1:9/debian' s390x
plays df 'echo Avail; echo 1500'
refuses 'too little space: free 500 MB on the file system of build/cross/s390x' s390x
plays apt-get 'exit 0'
refuses 'apt knows no source of Debian bookworm: add one' s390x
plays unshare 'exit 1'
refuses 'the right to mount is missing' s390x
plays id 'echo 1000'
refuses 'making a Debian needs root: run ./dev cross as root' s390x
plays dpkg 'echo s390x'
refuses 'this machine is s390x itself: ./dev test runs its tests' s390x
exit "$failed"
