# Nodes with PowerPath's names, made by hand for existing devices.
# shellcheck shell=bash
scene 'PowerPath names: nodes made by mknod'
node_of() {
    local major minor
    device_number "$2"
    mknod "$1" b "${major:?}" "${minor:?}"
}
node_of /dev/emcpowera /dev/mapper/data
node_of /dev/emcpowera1 /dev/mapper/data-part1
node_of /dev/emcpowera12 /dev/mapper/data-part12
answers <<'TABLE'
claim /dev/emcpowera                       | 16 powerpath                | map of sdc and sdd
is-partition /dev/emcpowera                | no                          | map of sdc and sdd
partition /dev/emcpowera 1                 | /dev/emcpowera1             | partition 1 of map data
partition /dev/emcpowera 12                | /dev/emcpowera12            | partition 12 of map data
partition /dev/emcpowera 2147483648        | /dev/emcpowera-2147483648   | no such node       | negative-number
is-partition /dev/emcpowera12              | yes                         | partition 12 of map data
whole /dev/emcpowera12                     | /dev/emcpowera 12           | partition 12 of map data
claim /dev/emcpowerzz7                     | 16 powerpath                | no such node       | name-decides
TABLE
record=$(kivclaim --trace 3 claim /dev/emcpowera 2>&1 >/dev/null | grep -oE '[A-Z_]*CLAIM_SECONDARY')
check 'the record of the claim names' CLAIM_SECONDARY "$record" '' claim-secondary
audit_finds name-decides /dev/emcpowera{,1,12}
record_machine
rm /dev/emcpowera*
