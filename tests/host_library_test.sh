#!/usr/bin/env bash
# Configures and builds the project for another host library, as -DKIVCLAIM_HOST_LIBRARY says, and asks what it built.
#
#     host_library_test.sh SOURCE HOST_LIBRARY SCENARIOS COMPILER
#
# SCENARIOS is the test program whose scenarios on the second host must pass with the plug-in that was built here.
set -euo pipefail
source=$1 host_library=$2 scenarios=$3 compiler=$4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    printf '%s\n' "$1"
    exit 1
}

configure() {
    cmake -S "$source" -B "$work/build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_BUILD_TYPE=Debug \
        -DKIVCLAIM_HOST_LIBRARY="$1" >"$work/log" 2>&1
}

for wrong in "$work/none.so" "$work"; do
    ! configure "$wrong" || fail "configuring for $wrong went well"
    grep -qF "KIVCLAIM_HOST_LIBRARY: $wrong is no file" "$work/log" || fail "no clear error: $(cat "$work/log")"
done

configure "$host_library" || fail "$(cat "$work/log")"
cmake --build "$work/build" --parallel 2 >"$work/log" 2>&1 || fail "$(cat "$work/log")"
needed=$(readelf -dW "$work/build/claim/libkivclaim.so.1")
grep -qF "[$(basename "$host_library")]" <<<"$needed" || fail "the host library is not needed: $needed"
! grep -qF libztfi_pdk <<<"$needed" || fail "the bundled host is needed: $needed"

LD_LIBRARY_PATH="$work/build/claim" "$scenarios" --gtest_filter='*OnSecondHost' --gtest_brief=1
