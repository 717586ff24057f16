#!/usr/bin/env bash
# An installation that was moved is still found, by CMake and by pkg-config: moved_tree_test.sh PREFIX COMPILER. The
# program links the library alone, so that what the library needs must be found as well.
set -euo pipefail
prefix=$1 compiler=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
moved="$work/another directory"
cp -a "$prefix" "$moved"
cd "$work"

cat >asks.cpp <<'TEXT'
#include "claim/kiv_claim_manager.h"

int main()
{
    CKivClaimManager manager;
    return manager.claim("/dev/sdc") == ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NATIVE ? 0 : 1;
}
TEXT
cat >CMakeLists.txt <<'TEXT'
cmake_minimum_required(VERSION 3.25)
project(asks LANGUAGES CXX)
find_package(kivclaim 1 REQUIRED)
add_executable(asks asks.cpp)
target_link_libraries(asks PRIVATE kivclaim::kivclaim)
TEXT

{
    cmake -S . -B build -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$moved" &&
        cmake --build build
} >log 2>&1 || { cat log && exit 1; }
LD_LIBRARY_PATH="$moved/lib" build/asks || { echo 'built with CMake, it answers wrongly' && exit 1; }

# pkg-config writes a blank in a path with a backslash, which is the shell's way.
flags=$(PKG_CONFIG_PATH="$moved/lib/pkgconfig" pkg-config --cflags --libs kivclaim)
eval "$compiler -Wl,--fatal-warnings asks.cpp $flags -o asks"
LD_LIBRARY_PATH="$moved/lib" ./asks || { echo 'built with pkg-config, it answers wrongly' && exit 1; }
