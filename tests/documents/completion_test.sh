#!/usr/bin/env bash
# What completion offers are the words of the command's help: completion_test.sh bash|zsh KIVCLAIM SCRIPT.
set -euo pipefail
export LC_ALL=C
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
shell=$1 kivclaim=$2 script=$3

# offered WORD...: prints what is offered for the last word of this command line.
case $shell in
    bash)
        # shellcheck source=/dev/null
        . "$script"
        offered() {
            COMP_WORDS=(kivclaim "$@") COMP_CWORD=$# COMPREPLY=()
            _kivclaim
            printf '%s\n' "${COMPREPLY[@]}" | sort -u
        }
        ;;
    zsh) offered() { "$here/zsh_completion.zsh" "$script" kivclaim "$@" | sort -u; } ;;
esac

failed=0
# expect WHAT EXPECTED WORD...
expect() {
    local what=$1 expected=$2
    shift 2
    if ! diff <(echo "$expected") <(offered "$@" | sed "s/.*,//"); then
        echo "$shell does not offer $what for 'kivclaim $*', see above: < missing, > unknown."
        failed=1
    fi
}

commands=$("$here/help_words.sh" "$kivclaim" commands)
expect 'the commands' "$commands" ''
expect 'the commands after the value of an option' "$commands" -o DEVICE ''
expect 'the options' "$("$here/help_words.sh" "$kivclaim" options)" -
for command in $commands; do
    expect 'the options' "$("$here/help_words.sh" "$kivclaim" options "$command")" "$command" -
done
expect 'the options after another' "$("$here/help_words.sh" "$kivclaim" options claim)" --trace 3 claim -

columns=$("$kivclaim" list --help | sed -nE 's/.*only these columns: ([A-Z:, and]+), separated.*/\1/p' | sed 's/ and /, /' | tr -s ', ' '\n' | sort)
expect 'the columns' "$columns" list -o ''
expect 'a further column' LEVEL list -o DEVICE,LE
expect 'a column' LEVEL list -x LE
# The command names them when one is none.
quirks=$("$kivclaim" audit --quirk none 2>&1 | sed 's/.*the quirks are //; s/ and /, /' | tr -s ', ' '\n' | sort) || true
expect 'the quirks' "$quirks" audit --quirk ''
expect 'the quirks' "$quirks" audit --no-quirk ''
expect 'a stack' native list -S none,na
for command in list claim is-partition partition whole explain audit active-path; do
    [[ $(offered "$command" /de) == ?(/)dev?(/) ]] || { echo "$shell offers no path for $command" && failed=1; }
done
exit "$failed"
