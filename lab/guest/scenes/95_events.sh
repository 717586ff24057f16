# A thousand partitions that appear at once, while kivclaim watch follows the kernel's events. udev is stopped first: its
# rules for so many partitions take minutes here. That cannot be undone, so this is one of the last scenes.
# shellcheck shell=bash
scene 'kivclaim watch while 1,000 partitions appear at once'
udevadm control --exit
disks=(/dev/sda /dev/sdi /dev/sdk /dev/sdo)
{
    printf 'label: gpt\ntable-length: 256\n'
    printf 'start=%d, size=8\n' {2048..4040..8}
} >/tmp/table
for disk in "${disks[@]}"; do
    sfdisk --quiet --no-reread --no-tell-kernel "$disk" </tmp/table
done

# came: how many of the partitions the command has named.
came() {
    grep -cE "Z /dev/sd[a-z][0-9]+ came: " /tmp/watched || true
}
named() {
    [ "$(came)" -ge "$1" ]
}
still_watches() {
    kill -0 "$watching"
}
# all_disks OPTION: runs partx for the four disks at the same time.
all_disks() {
    printf '%s\n' "${disks[@]}" | xargs -P 4 -n 1 partx "$1"
}

kivclaim --no-warn watch >/tmp/watched 2>/tmp/watch_errors &
watching=$!
within 600 grep -q '^kivclaim: watching ' /tmp/watch_errors
begin=$(date +%s%N)
all_disks -a
took=$((($(date +%s%N) - begin) / 10000000))
partitions=(/sys/class/block/sd[aiko][0-9]*)
check 'partitions that the kernel has' 1000 "${#partitions[@]}"
within 600 named 1000 || true
check 'kivclaim watch: partitions that came' 1000 "$(came)"
check 'does it go on?' yes "$(yes_or_no still_watches)"
lost=no
! grep -q '^kivclaim: events were lost' /tmp/watch_errors || lost=yes
note "the partitions took $(printf '%d.%02d' $((took / 100)) $((took % 100))) s, under emulation; events were lost: $lost"
record_machine 100
partx -d --nr 250 /dev/sda
within 600 grep -q ' /dev/sda250 went: ' /tmp/watched || true
check 'one of them goes: does it say so?' yes "$(yes_or_no grep -q ' /dev/sda250 went: ' /tmp/watched)"
kill "$watching"
status=0
wait "$watching" || status=$?
check 'ended by SIGTERM: exit status' 143 "$status"
all_disks -d
