# The listing fails: lvdisplay exits with an error, is missing, prints only a part, or hangs.
# shellcheck shell=bash
vgcreate -q -s 1M vg00 /dev/mapper/pv
lvcreate -q -y -l 1 -n lvol1 vg00
cp -a /sbin/lvdisplay /sbin/lvdisplay.kept

replaced_by() {
    rm -f /sbin/lvdisplay
    cat >/sbin/lvdisplay
    chmod +x /sbin/lvdisplay
}

scene 'lvdisplay fails, is missing, prints only a part'
answers <<'TABLE'
claim /dev/mapper/vg00-lvol1               | 0 none                      | logical volume
TABLE
replaced_by <<'SCRIPT'
#!/bin/sh
echo '  Unable to read the metadata' >&2
exit 5
SCRIPT
note 'lvdisplay ends with status 5'
answers <<'TABLE'
claim /dev/mapper/vg00-lvol1               | 16 device-mapper            | logical volume | failed-listing
claim /dev/mapper/data                     | 16 device-mapper            | map of sdc and sdd
TABLE
audit_finds failed-listing /dev/mapper/vg00-lvol1 /dev/mapper/data
record_machine
rm /sbin/lvdisplay
note 'lvm2 is removed'
answers <<'TABLE'
claim /dev/mapper/vg00-lvol1               | 16 device-mapper            | logical volume | failed-listing
claim /dev/mapper/data                     | 16 device-mapper            | map of sdc and sdd
TABLE
replaced_by <<'SCRIPT'
#!/bin/sh
lvm lvdisplay | head -n 3
SCRIPT
note 'lvdisplay prints its first three lines only'
answers <<'TABLE'
claim /dev/mapper/vg00-lvol1               | 16 device-mapper            | logical volume | no-group-line
TABLE
entry=$(echo 'claim /dev/mapper/vg00-lvol1' | lab_host --trace 6 2>&1 | sed -nE 's/.*createLvmDeviceNamesList: Output:\[(.*)\]$/\1/p')
check 'what does the list contain?' '/dev/mapper/ame                lvol1-lvol1' "$entry"

# claims_while_listing NAME: asks in the background, and waits until lvdisplay runs for it.
claims_while_listing() {
    echo "claim /dev/mapper/$1" | ask >/tmp/answer 2>/tmp/errors &
    asking=$!
    within 600 pgrep -x lvdisplay
    sleep 1
}
still_waits() {
    [ ! -s /tmp/answer ] && kill -0 "$asking"
}

scene 'The map under the group is suspended: lvdisplay waits, and so does the answer'
cp -a /sbin/lvdisplay.kept /sbin/lvdisplay
dmsetup suspend --nolockfs pv
claims_while_listing vg00-lvol1
check 'one second later: does the question wait?' yes "$(yes_or_no still_waits)" 'map pv is suspended'
dmsetup resume pv
wait "$asking"
check 'claim /dev/mapper/vg00-lvol1, when it is resumed' '0 none' "$(</tmp/answer)" 'logical volume'

scene 'lvdisplay hangs, and an administrator ends it (the fast tests cover the limit of ten minutes)'
replaced_by <<'SCRIPT'
#!/bin/sh
kill -STOP $$
SCRIPT
claims_while_listing vg00-lvol1
check 'one second later: does the question wait?' yes "$(yes_or_no still_waits)" 'lvdisplay is running'
pkill -KILL -x lvdisplay
wait "$asking"
check 'claim /dev/mapper/vg00-lvol1, when it was ended' '16 device-mapper' "$(</tmp/answer)" 'logical volume' failed-listing
rm /sbin/lvdisplay
mv /sbin/lvdisplay.kept /sbin/lvdisplay
vgremove -q -y -ff vg00
wipefs -q -a /dev/mapper/pv
