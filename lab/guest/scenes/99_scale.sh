# A machine with 2,000 device-mapper nodes. udev is stopped first: its rules for so many nodes take minutes here. That
# cannot be undone, so this is the last scene.
# shellcheck shell=bash
scene '2,000 device-mapper nodes'
udevadm control --exit || true # the scene before may have done so
nodes=$(printf 'node%04d,,,rw,0 8 zero;' {1..2000})
dmsetup create --noudevrules --noudevsync --concise "${nodes%;}"
dmsetup mknodes --noudevrules --noudevsync

# seconds COMMAND...: measures its time; its exit status is in `status` and its output in /tmp/output.
seconds() {
    local begin end
    begin=$(date +%s%N)
    status=0
    "$@" >/tmp/output || status=$?
    end=$(date +%s%N)
    took=$(((end - begin) / 10000000))
    printf -v took '%d.%02d' $((took / 100)) $((took % 100))
}
lines() {
    grep -c "$1" /tmp/output
}

check 'nodes under /dev/mapper/node*' 2000 "$(find /dev/mapper -name 'node*' | wc -l)"
seconds lsblk
check 'lsblk: exit status, nodes' '0: 2000' "$status: $(lines node)"
lsblk_took=$took
seconds kivclaim list
check 'kivclaim list: exit status, nodes' '0: 2000' "$status: $(lines '/dev/mapper/node[0-9]* *device-mapper *16')"
list_took=$took
seconds kivclaim audit
check 'kivclaim audit: exit status, nodes (any-mapping)' '0: 2000' "$status: $(lines 'any-mapping')"
note "$(tail -n 1 /tmp/output)"
record_machine 100
note "lsblk $lsblk_took s, kivclaim list $list_took s, kivclaim audit $took s, all under emulation"
