#!/usr/bin/env bash
# Compiles one installed header alone: header_test.sh COMPILER STANDARD PREFIX HEADER [SOURCE]. It sees installed files
# only. They count as part of the program, so that their warnings are shown; -isystem would hide them. Warnings of ACE's
# headers do not matter.
set -euo pipefail
compiler=$1 standard=$2 prefix=$3 header=$4 source=${5:-/dev/null}

[ -f "$prefix/include/kivclaim/$header" ] || { echo "$header is not installed" && exit 1; }
read -ra flags <<<"$(pkg-config --cflags ACE | sed 's/-I/-isystem /g')"
"$compiler" "-std=$standard" -Wall -Wextra -Wpedantic -Wshadow -Weffc++ -Wconversion -Wsign-conversion -Werror \
    -fsyntax-only -I "$prefix/include/kivclaim" "${flags[@]}" -include "$header" -x c++ "$source"
