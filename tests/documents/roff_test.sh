#!/usr/bin/env bash
# The manual pages are understood without complaint by both formatters, in narrow and in wide windows: roff_test.sh
# PAGE...
set -euo pipefail
export LC_ALL=C.UTF-8

complaints=$(for page in "$@"; do
    mandoc -T lint "$page" || true
    for width in 80 120; do
        MANWIDTH=$width man --warnings -l "$page" 2>&1 >/dev/null || true
    done
    [ "$(man -l "$page" | wc -l)" -gt 50 ] || echo "$page is empty"
done)
[ -z "$complaints" ] || { echo "$complaints" && exit 1; }
