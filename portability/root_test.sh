#!/usr/bin/env bash
# Interrupts `./dev anywhere` with signals and by a missing network, and checks what is left. Run it as root, outside of
# containers. Prints a line for each check, and how many passed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD/build/anywhere/root

log=$(mktemp)
run=''
clean_up() {
    [ -z "$run" ] || kill "$run" 2>/dev/null || true
    rm -f "$log"
}
trap clean_up EXIT

passed=0 failed=0
# check WHAT EXPECTED ACTUAL
check() {
    if [ "$2" = "$3" ]; then
        echo "  passed: $1"
        passed=$((passed + 1))
    else
        printf '  FAILED: %s\n    expected: %s\n    actual: %s\n' "$@"
        failed=$((failed + 1))
    fi
}

# The remains of a run: processes in the root directory, mounts in it, and the root directory itself.
left() {
    local links what=''
    links=$(readlink /proc/[0-9]*/root /proc/[0-9]*/cwd 2>/dev/null || true)
    [[ $links != *"$root"* ]] || what+=' processes'
    ! grep -qsF "$root" /proc/[0-9]*/mountinfo || what+=' mounts'
    [ ! -e "$root" ] || what+=' root'
    printf '%s\n' "${what# }"
}

root_is_made() {
    [ -e "$root/etc" ]
}

packages_are_installed() {
    [ -e "$root/usr/bin/git" ]
}

container_is_entered() {
    grep -q 'trixie: ./dev run' "$log" && [ "$(left)" = 'processes mounts root' ]
}

# interrupted SIGNAL STATUS MOMENT: sends the signal as soon as the run has reached this moment.
interrupted() {
    local signal=$1 expected=$2 moment=$3 status=0 before
    # A shell's background job ignores some signals, which it then could not handle.
    env --default-signal ./dev anywhere --preset release trixie >"$log" 2>&1 &
    run=$!
    until "$moment" || ! kill -0 "$run" 2>/dev/null; do sleep 0.2; done
    before=$(left)
    kill "-$signal" "$run"
    wait "$run" || status=$?
    run=''
    check "$signal while ${moment//_/ }: the status is the signal's" "$expected" "$status"
    check "$signal while ${moment//_/ }: one line says so" './dev anywhere: interrupted' "$(tail -n 1 "$log")"
    [ "$moment" = root_is_made ] ||
        check "$signal while ${moment//_/ }: all of it was there before" 'processes mounts root' "$before"
    check "$signal while ${moment//_/ }: nothing is left" '' "$(left)"
}

without_network() {
    local status=0
    unshare --net ./dev anywhere trixie >"$log" 2>&1 || status=$?
    check 'without a network: nothing could be tried' 2 "$status"
    check 'without a network: one line says what to look at' 1 \
        "$(tail -n 1 "$log" | grep -c "no clean root of trixie: look at the network")"
    check 'without a network: nothing is left' '' "$(left)"
}

interrupted INT 130 root_is_made
interrupted HUP 129 container_is_entered
interrupted TERM 143 packages_are_installed
without_network
printf 'anywhere: %d passed, %d failed\n' "$passed" "$failed"
[ "$failed" = 0 ]
