# all_answers.sh DEVICES COMMAND...: prints what kivclaim answers about a machine, with all records of the library and the
# exit statuses; each device that the file DEVICES names is explained. COMMAND is kivclaim with its options. Run in the
# lab, and outside with a recording of the same machine, this prints the same.
# shellcheck shell=bash
set -euo pipefail
devices=$1
kivclaim=("${@:2}")
errors=$(mktemp)
trap 'rm -f "$errors"' EXIT

# ask ARGUMENT...: records without what is never twice the same, their times and the numbers of process and thread, and
# warnings without the advice to run lvdisplay, which is for who is on the machine.
ask() {
    local status=0
    printf '== %s\n' "$*"
    "${kivclaim[@]}" --trace 6 "$@" 2>"$errors" </dev/null || status=$?
    sed -E 's/^[0-9-]{10} [0-9:.]{12} ([a-z]+ +)[0-9]+:[0-9]+ /\1/
        s#; run /sbin/lvdisplay by hand to see what is wrong$##; s/^/-- /' "$errors"
    printf '== status %d\n' "$status"
}

ask list -O
ask list --all --json -O
ask list --luns
ask audit
while IFS= read -r device; do
    ask explain "$device"
done <"$devices"
