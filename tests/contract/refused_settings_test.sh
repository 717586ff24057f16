#!/usr/bin/env bash
# A compiler setting that the headers cannot work with is refused by one error that says what is needed:
# refused_settings_test.sh COMPILER PREFIX HEADER. Only what is installed is seen.
set -euo pipefail
export LC_ALL=C
compiler=$1 prefix=$2 header=$3
read -ra flags <<<"$(PKG_CONFIG_PATH=$prefix/lib/pkgconfig pkg-config --cflags kivclaim)"

# refuses NEED OPTION...
refuses() {
    local need=$1 output
    shift
    if output=$("$compiler" -fsyntax-only "${flags[@]}" "$@" -include "$header" -x c++ /dev/null 2>&1); then
        echo "$header compiles with $*" && exit 1
    fi
    grep -qF "kivclaim$need" <<<"$output" || { printf '%s\nno clear error for %s\n' "$output" "$*" && exit 1; }
    # The one error, and the end of the compilation.
    if [ "$(grep -c 'error: ' <<<"$output")" != 2 ] || ! grep -q 'fatal error: .*the_error_above_says' <<<"$output"; then
        printf '%s\nmore than one error for %s\n' "$output" "$*"
        exit 1
    fi
}

refuses ' needs C++17 or later' -std=c++14
refuses ' needs C++ exceptions' -std=c++17 -fno-exceptions
if [ "$header" = claim/kiv_claim_manager.h ]; then
    refuses "'s std::vector is the ordinary one" -std=c++17 -D_GLIBCXX_DEBUG
fi
refuses "'s std::string is the one of C++11" -std=c++17 -D_GLIBCXX_USE_CXX11_ABI=0
