#!/usr/bin/env bash
# Prints the files that an installation consists of: installed_files.sh PREFIX. Without the documents, which come and go;
# all else is what packages and other people's builds rely on.
set -euo pipefail
export LC_ALL=C
cd "$1"
find . ! -type d ! -path './share/doc/*' | cut -c 3- | sort
