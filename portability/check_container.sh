#!/usr/bin/env bash
# Is this a plain container? Prints what should not be possible here but is, and fails then. Run it there, as root.
set -euo pipefail

expected=00000000a80425fb
allowed=()
capabilities=$(sed -nE 's/^CapBnd:\s*//p' /proc/self/status)
[ "$capabilities" = "$expected" ] || allowed+=("the capabilities $capabilities in place of $expected")
# possible WHAT COMMAND...
possible() {
    local what=$1
    shift
    ! "$@" 2>/dev/null || allowed+=("$what")
}
possible 'a mount namespace' unshare --mount true
possible 'a user namespace' unshare --user true
possible 'entering a namespace' nsenter --uts=/proc/self/ns/uts true
possible 'a mount' mount -t tmpfs none /mnt
possible 'another personality' setarch --addr-no-randomize true
[ ${#allowed[@]} = 0 ] || { printf 'possible here, and in no plain container: %s\n' "${allowed[@]}" && exit 1; }
