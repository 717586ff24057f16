#!/usr/bin/env bash
# Installs a build for the tests that look at what is installed: install.sh BUILD PREFIX. Nothing of before is left there.
set -euo pipefail
build=$1 prefix=$2

rm -rf "$prefix"
cmake --install "$build" --prefix "$prefix" --strip
