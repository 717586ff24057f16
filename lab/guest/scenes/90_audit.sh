# The audit finds prepared differences, and reports those that no quirk explains.
# shellcheck shell=bash
scene 'The audit of this machine, before and after differences are prepared'
audit_finds 'last-digit missing-neighbour partition-like-name path-of-a-map'
concerns last-digit /dev/mapper/data-part1{0,1,2}
concerns missing-neighbour /dev/mapper/disk7-part12
concerns partition-like-name /dev/mapper/{logs-part1,mpath1}
concerns path-of-a-map /dev/sd{a..p}
check 'devices that differ otherwise' 0 "$(audited_count unknown)"
dmsetup rename data-part5 data_five
dmsetup create secret --table '0 2048 zero'
settle
note 'data-part5 is renamed to data_five, and a mapping of another sort is made'
audit_finds 'any-mapping last-digit missing-neighbour name-decides partition-like-name path-of-a-map release-decides'
concerns any-mapping /dev/mapper/secret
concerns name-decides /dev/mapper/data_five
concerns release-decides /dev/mapper/data
check 'devices that differ otherwise' 0 "$(audited_count unknown)"
record_machine
dmsetup rename data_five data-part5
dmsetup remove secret

scene 'The audit with another module that claims every path'
status=0
kivclaim --module /lab/tools/claims_too_much.so audit --json >/tmp/audit.json || status=$?
check 'audit with claims_too_much.so: exit status' 1 "$status"
check 'do all devices differ otherwise?' "$(audited_count devices)" "$(audited_count unknown)"
