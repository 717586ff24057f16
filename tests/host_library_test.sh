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

# A program that is built against the installation finds the host library, and links it.
installed=$work/installed
cmake --install "$work/build" --prefix "$installed" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
cat >"$work/asks.cpp" <<'TEXT'
#include "claim/kiv_claim_manager.h"
#include "claim/kiv_host_operations.h"

#include <iostream>

int main()
{
    CKivClaimManager manager;
    std::cout << manager.claim("/dev/sdc") << ' ' << kivclaim::hostOperations().front().file << '\n';
}
TEXT
cat >"$work/CMakeLists.txt" <<'TEXT'
cmake_minimum_required(VERSION 3.25)
project(asks LANGUAGES CXX)
find_package(kivclaim 1 REQUIRED)
message(STATUS "the host library is ${kivclaim_HOST_LIBRARY}")
add_executable(asks asks.cpp)
target_link_libraries(asks PRIVATE kivclaim::kivclaim)
TEXT
answers() {
    local answer
    answer=$(LD_LIBRARY_PATH="$installed/lib:$(dirname "$host_library")" "$1" 2>&1) || fail "$2: $answer"
    [[ $answer = "2 "*"/$(basename "$host_library")" ]] || fail "$2: $answer"
}

read -ra flags <<<"$(PKG_CONFIG_PATH=$installed/lib/pkgconfig pkg-config --cflags --libs kivclaim)"
[[ " ${flags[*]} " = *" $host_library "* ]] || fail "kivclaim.pc does not name it: ${flags[*]}"
"$compiler" -std=c++17 -Wl,--no-as-needed "$work/asks.cpp" "${flags[@]}" -o "$work/asks"
answers "$work/asks" 'built with pkg-config'

cmake -S "$work" -B "$work/asking" -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$installed" >"$work/log" 2>&1 ||
    fail "$(cat "$work/log")"
grep -qF "the host library is $host_library" "$work/log" || fail "the CMake package does not name it: $(cat "$work/log")"
cmake --build "$work/asking" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
answers "$work/asking/asks" 'built with CMake'
