# Logical volumes: on a disk and on a multipath map, with dashes, with a snapshot, created and removed while a host
# keeps its list.
# shellcheck shell=bash

# shellcheck source=lab/guest/beside_lsblk.sh
. /lab/guest/beside_lsblk.sh

scene 'No logical volume at all: /sbin/lvdisplay runs for every question'
questions() {
    printf 'claim /dev/mapper/%s\n' plain data pv
}
# runs: how often the host's questions make the library run lvdisplay.
runs() {
    questions | lab_host --trace 6 2>&1 >/dev/null | grep -c 'Command:\[/sbin/lvdisplay\]'
}
check 'three questions: how many runs?' 3 "$(runs)" "$(lvs --noheadings | wc -l) logical volumes" every-question
lvdisplay | captured lvdisplay/no_volume.txt

vgcreate -q -s 1M local /dev/sdq1
vgcreate -q -s 1M vg-a /dev/sdq12
vgcreate -q vg00 /dev/mapper/pv
lvcreate -q -y -l 1 -n root local
lvcreate -q -y -l 1 -n lv1 vg-a
lvcreate -q -y -l 1 -n lvol1 vg00
lvcreate -q -y -l 1 -n home-dir vg00

scene 'Logical volumes are refused, except those with a dash'
answers <<'TABLE'
claim /dev/mapper/local-root               | 0 none                      | logical volume
claim /dev/mapper/vg00-lvol1               | 0 none                      | logical volume
whole /dev/mapper/vg00-lvol1               | nothing -                   | logical volume
claim /dev/mapper/vg00-home--dir           | 16 device-mapper            | logical volume | dashed-volume
claim /dev/mapper/vg--a-lv1                | 16 device-mapper            | logical volume | dashed-volume
claim /dev/mapper/pv                       | 16 device-mapper            | map of sdo and sdp
TABLE
check 'three questions: how many runs?' 1 "$(runs)" "$(lvs --noheadings | wc -l) logical volumes"
lvdisplay | captured lvdisplay/four_volumes.txt
[ ! -f /lab/capture ] || bash /lab/guest/capture_machine.sh
audit_finds 'dashed-volume' /dev/mapper/{vg00-lvol1,vg00-home--dir,vg--a-lv1,local-root,pv}

scene 'A map with the name that a volume has in the list'
dmsetup rename plain vg-a-lv1
answers <<'TABLE'
claim /dev/mapper/vg-a-lv1                 | 0 none                      | map of sda and sdb | dashed-volume
TABLE
dmsetup rename vg-a-lv1 plain

scene 'A snapshot: its inner volumes are not printed'
lvcreate -q -y -s -l 1 -n snap vg00/lvol1
answers <<'TABLE'
claim /dev/mapper/vg00-snap                | 0 none                      | logical volume
claim /dev/mapper/vg00-lvol1-real          | 16 device-mapper            | logical volume | unlisted-volume
claim /dev/mapper/vg00-snap-cow            | 16 device-mapper            | logical volume | unlisted-volume
TABLE
lvdisplay | captured lvdisplay/snapshot.txt
audit_finds 'dashed-volume last-digit missing-neighbour partition-like-name path-of-a-map unlisted-volume'
list_agrees_with_lsblk
record_machine
lvremove -q -y vg00/snap

scene 'A host keeps its list: volumes created and removed meanwhile'
open_host
answers <<'TABLE'
claim /dev/mapper/vg00-late                | 16 device-mapper            | no such node
claim /dev/mapper/local-root               | 0 none                      | logical volume
TABLE
lvcreate -q -y -l 1 -n late vg00
lvremove -q -y local/root
answers <<'TABLE'
claim /dev/mapper/vg00-late                | 16 device-mapper            | logical volume | stale-list
claim /dev/mapper/local-root               | 0 none                      | no such node   | stale-list
clear                                      | done                        |
claim /dev/mapper/vg00-late                | 16 device-mapper            | logical volume | manager-clears-nothing
device-mapper: clear                       | done                        |
claim /dev/mapper/vg00-late                | 0 none                      | logical volume
claim /dev/mapper/local-root               | 16 device-mapper            | no such node   | name-decides
TABLE
close_host
vgremove -q -y -ff vg00 local vg-a
wipefs -q -a /dev/sdq1 /dev/sdq12 /dev/mapper/pv
