# Names of devices other than those that the kernel and udev give; and the answers of single modules.
# shellcheck shell=bash
scene 'Names: nodes elsewhere, other names of a map, names without a device'
mkdir -p /host/dev /dev/mapper/dev
mount --bind /dev /host/dev
dmsetup create secret --table '0 2048 zero'
device_number /dev/mapper/data
mknod /dev/mapper/dev/emcpowera b "${major:?}" "${minor:?}"
settle
answers <<'TABLE'
claim /host/dev/mapper/data                | 16 device-mapper            | map of sdc and sdd | prefix-anywhere
raw /host/dev/mapper/data                  | yes                         | map of sdc and sdd | raw-anywhere
claim /host/dev/sda                        | 2 native                    | disk, used by plain | prefix-anywhere
claim /dev/disk/by-id/dm-name-data         | 0 none                      | map of sdc and sdd | name-decides
whole /dev/disk/by-id/dm-name-data         | nothing -                   | map of sdc and sdd | empty-answer
claim /dev/mapper/nobody                   | 16 device-mapper            | no such node       | name-decides
claim /dev/mapper/secret                   | 16 device-mapper            | device-mapper node | any-mapping
claim /dev/mapper/                         | 16 device-mapper            | a directory        | bare-prefix
claim /dev/sd                              | 0 none                      | no such node       | bare-prefix
claim /dev/mapper/dev/emcpowera            | 16 powerpath                | map of sdc and sdd | earlier-wins
strings                                    | /dev/mapper/ /dev/emcpower /dev/sd | | claim-strings
TABLE
audit_finds 'any-mapping name-decides prefix-anywhere' /host/dev/{mapper/data,sda} /dev/disk/by-id/dm-name-data \
    /dev/mapper/nobody /dev/mapper/secret

scene 'Single modules, asked about devices of other stacks'
answers <<'TABLE'
device-mapper: claim /dev/sda              | 0                           | disk, used by plain
device-mapper: is-partition /dev/sdq7      | yes                         | no such node       | any-digit
device-mapper: whole /dev/sdq1             | /dev/sdq1 -                 | partition 1 of disk sdq | unwritten-number
native: is-partition /dev/mapper/disk7     | yes                         | map of sde and sdf | native-digit
powerpath: whole emcpowerb3                | emcpowerb 3                 |                    | bare-name
TABLE
record_machine

dmsetup remove secret
rm -r /dev/mapper/dev
umount /host/dev
