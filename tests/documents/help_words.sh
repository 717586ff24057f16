#!/usr/bin/env bash
# Prints the words that the command's own help names: help_words.sh KIVCLAIM commands, or help_words.sh KIVCLAIM options
# [COMMAND]. The options are those that work there: 'kivclaim --help' lists those of all commands, and without a command
# those of 'list' work too. CLI11 writes headings in capitals since 2.5, and blanks between an option's names.
set -euo pipefail
export LC_ALL=C
kivclaim=$1 kind=$2 command=${3:-list}

# Prints the names of each entry below the heading $1.
entries() {
    awk -v heading="$1:" 'toupper($0) == toupper(heading) { inside = 1; next } /^[^ ]/ { inside = 0 }
        inside && match($0, /^ +/) && RLENGTH <= 10 { print $1; if ($1 ~ /,$/) print $2 }'
}

case $kind in
    commands) "$kivclaim" --help | entries Subcommands ;;
    options)
        {
            "$kivclaim" --help
            "$kivclaim" "$command" --help
        } | entries Options | tr , '\n' | grep .
        ;;
esac | sort -u
