#!/usr/bin/env bash
# Makes the contract of a build the one that is kept in contract/: renew.sh BUILD. Only for changes that hosts are meant
# to see.
set -euo pipefail
export LC_ALL=C
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
contract=$(cd "$here/../../contract" && pwd)
build=$1

for library in "$build"/claim/libkivclaim.so.1 "$build"/host/libztfi_pdk.so.4.4 \
    "$build"/machine/libkivclaim_kernel.so.1; do
    name=$(basename "$library")
    "$here/exported_symbols.sh" "$library" >"$contract/$name.symbols"
    "$here/dump_abi.sh" "$library" >"$contract/$name.abi"
done
"$here/comparison.sh" --toolchain "$build/claim/libkivclaim.so.1" >"$contract/toolchain"
installed=$(mktemp -d)
trap 'rm -rf "$installed"' EXIT
cmake --install "$build" --prefix "$installed" >/dev/null
"$here/installed_files.sh" "$installed" >"$contract/installed_files"
