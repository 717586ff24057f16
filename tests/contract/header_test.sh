#!/usr/bin/env bash
# Compiles one installed header alone: header_test.sh COMPILER STANDARD PREFIX HEADER [SOURCE]. Only what is installed is seen, and
# as a part of the program, with the warnings that its makers may have asked for: -isystem would hide them. Those of ACE
# are nobody's business.
set -euo pipefail
compiler=$1 standard=$2 prefix=$3 header=$4 source=${5:-/dev/null}

[ -f "$prefix/include/kivclaim/$header" ] || { echo "$header is not installed" && exit 1; }
read -ra flags <<<"$(pkg-config --cflags ACE | sed 's/-I/-isystem /g')"
"$compiler" "-std=$standard" -Wall -Wextra -Wpedantic -Wshadow -Weffc++ -Wconversion -Wsign-conversion -Werror \
    -fsyntax-only -I "$prefix/include/kivclaim" "${flags[@]}" -include "$header" -x c++ "$source"
