#!/usr/bin/env bash
# Prints what a library exports: exported_symbols.sh LIBRARY. Mangled names, one a line: they are what the loader binds,
# whereas one readable name can stand for several symbols. Their kinds are left out: compilers choose them differently.
set -euo pipefail
export LC_ALL=C

# The type information of function types comes from a sanitizer.
nm -D --defined-only --format=posix "$1" | cut -d ' ' -f 1 | sort -u | grep -vE '^_ZT[IS]F'
