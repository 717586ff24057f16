# Native disks: one without multipathing, and the paths of maps, while one of them fails.
# shellcheck shell=bash
scene 'Disks under /dev/sd: one without multipathing, and paths of maps'
answers <<'TABLE'
claim /dev/sdq                             | 2 native                    | disk
is-partition /dev/sdq                      | no                          | disk
claim /dev/sdq12                           | 2 native                    | partition 12 of disk sdq
is-partition /dev/sdq12                    | yes                         | partition 12 of disk sdq
whole /dev/sdq12                           | /dev/sdq 12                 | partition 12 of disk sdq
partition /dev/sdq 1                       | /dev/sdq1                   | partition 1 of disk sdq
partition /dev/sdq 2                       | /dev/sdq2                   | no such node
claim /dev/sda                             | 2 native                    | disk, used by plain | path-of-a-map
claim /dev/sdc                             | 2 native                    | disk, used by data  | path-of-a-map
partition /dev/sdc 3                       | /dev/sdc3                   | no such node
TABLE
note 'udev has removed the partitions of the paths; partx brings them back'
partx -a /dev/sdc
settle
answers <<'TABLE'
partition /dev/sdc 3                       | /dev/sdc3                   | partition 3 of disk sdc
claim /dev/sdc3                            | 2 native                    | partition 3 of disk sdc
whole /dev/sdc12                           | /dev/sdc 12                 | partition 12 of disk sdc
TABLE
audit_finds path-of-a-map /dev/sd{a,c,c3,c12,q,q12}
partx -d /dev/sdc

state_of() {
    printf '%s %s' "$1" "$(<"/sys/block/$1/device/state")"
}
# The kernel's multipath target counts a failed path as F.
map_sees() {
    dmsetup status data | grep -qF "$1"
}
# In any order, because multipathd sorts the paths again.
map_sees_both() {
    map_sees '8:32 A' && map_sees '8:48 A'
}
ask_all_along() {
    until [ -e /tmp/enough ]; do
        printf 'claim /dev/%s\n' sdc mapper/data | ask
        echo >>/tmp/rounds
    done
}
three_rounds_more() {
    [ "$(wc -l </tmp/rounds)" -gt $((before + 3)) ]
}

scene 'A path fails while it is asked about'
rm -f /tmp/enough /tmp/rounds
open_host
ask_all_along >/tmp/all &
within 600 test -s /tmp/rounds
echo offline >/sys/block/sdc/device/state
within 600 map_sees '8:32 F'
check 'is path 8:32 failed for the map?' yes "$(yes_or_no map_sees '8:32 F')" "$(state_of sdc), $(state_of sdd)"
before=$(wc -l </tmp/rounds)
within 600 three_rounds_more
touch /tmp/enough
wait $!
check "claim /dev/sdc, claim /dev/mapper/data: always" '16 device-mapper, 2 native' \
    "$(sort -u /tmp/all | paste -sd , | sed 's/,/, /')" "$(state_of sdc)"
note "asked $(($(wc -l </tmp/all) / 2)) times, $before of them before the map saw the path fail"
record_machine
echo offline >/sys/block/sdd/device/state
answers <<'TABLE'
claim /dev/sdd                             | 2 native                    | disk, used by data | path-of-a-map
is-partition /dev/mapper/data-part12       | yes                         | partition 12 of map data
TABLE
close_host
echo running >/sys/block/sdc/device/state
echo running >/sys/block/sdd/device/state
within 600 map_sees_both
check 'are both paths back?' yes "$(yes_or_no map_sees_both)" "$(state_of sdc), $(state_of sdd)"
