#!/usr/bin/env bash
# What `./dev anywhere` and `./dev test` refuse: anywhere_test.sh CASE. Nothing of it needs rights.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# stub NAME COMMANDS: a program of this name, found before the real one.
stub() {
    printf '#!/bin/sh\n%s\n' "$2" >"$work/$1"
    chmod +x "$work/$1"
}

# refuses LINE COMMAND...: status 2, and this one line on standard error.
refuses() {
    local line=$1 status=0
    shift
    PATH=$work:$PATH "$root/dev" "$@" >"$work/output" 2>"$work/errors" || status=$?
    [ "$status" = 2 ] || { echo "the status is $status: $(cat "$work/errors")" && exit 1; }
    diff <(printf '%s\n' "$line") "$work/errors"
    [ ! -s "$work/output" ] || { cat "$work/output" && exit 1; }
}

case $1 in
    release)
        refuses "./dev anywhere: 'buster' is no known release: take one of bookworm trixie sid" anywhere trixie buster
        ;;
    option)
        refuses "./dev anywhere: '--users' is no option: the options are --preset NAME and --user" anywhere --users
        ;;
    preset)
        refuses "./dev anywhere: 'debug' is no preset: take one of release asan tsan" anywhere --preset debug
        refuses "./dev anywhere: '' is no preset: take one of release asan tsan" anywhere --preset
        ;;
    rights)
        stub id 'echo 1000'
        refuses './dev anywhere: root is needed for a root of another release: run it as root or with sudo' anywhere sid
        ;;
    space)
        stub id 'echo 0'
        stub df 'printf "Avail\n1048576\n"'
        refuses "./dev anywhere: 5000 MiB are needed in build/anywhere, 1024 are free: free some" \
            anywhere --preset release trixie
        ;;
    test)
        refuses "./dev: test: 'debug' is no preset: take one of release asan tsan" test --preset debug
        refuses "./dev: test: '--fast' is not understood; the only option is --preset NAME" test --fast
        refuses "./dev: install: 'all' is not understood; it takes no argument" install all
        ;;
    *) echo "'$1' is no case" && exit 2 ;;
esac
