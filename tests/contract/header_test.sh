#!/usr/bin/env bash
# Compiles one installed header alone: header_test.sh COMPILER STANDARD PREFIX HEADER. Only what is installed is seen.
set -euo pipefail
compiler=$1 standard=$2 prefix=$3 header=$4

[ -f "$prefix/include/kivclaim/$header" ] || { echo "$header is not installed" && exit 1; }
read -ra flags <<<"$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags kivclaim)"
"$compiler" "-std=$standard" -Wall -Wextra -Werror -fsyntax-only "${flags[@]}" -include "$header" -x c++ /dev/null
