# The audit finds what is planted, and tells what it does not know.
# shellcheck shell=bash
verdict_on() {
    kivclaim audit --only-differences "$1" | awk -v device="$1" '$1 == device { print; exit }' | tr -s ' '
}

scene 'The audit of this machine, before and after something is planted'
audit_finds 'last-digit missing-neighbour partition-like-name path-of-a-map'
check 'devices that differ otherwise' 0 "$(audited_count unknown)"
dmsetup rename data-part5 data_five
dmsetup create secret --table '0 2048 zero'
udevadm settle
note 'data-part5 is renamed to data_five, and a mapping of another sort is made'
audit_finds 'any-mapping last-digit missing-neighbour name-decides partition-like-name path-of-a-map release-decides'
check 'devices that differ otherwise' 0 "$(audited_count unknown)"
dmsetup rename data_five data-part5
dmsetup remove secret

scene 'The audit with a module of somebody else that claims every path'
status=0
kivclaim --module /lab/tools/claims_too_much.so audit --json >/tmp/audit.json || status=$?
check 'kivclaim --module claims_too_much.so audit: exit status' 1 "$status"
check 'do all devices differ otherwise?' "$(audited_count devices)" "$(audited_count unknown)"
