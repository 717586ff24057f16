# The names of partitions on kernels of each family: the release decides.
# shellcheck shell=bash
scene 'The running kernel: family 12, partitions named by udev and by kpartx -p _part'
kpartx -a -s -p _part /dev/mapper/old
answers <<'TABLE'
partition /dev/mapper/old 1                | /dev/mapper/old-part1       | no such node         | release-decides
is-partition /dev/mapper/old_part1         | yes                         | partition 1 of map old
whole /dev/mapper/old_part1                | /dev/mapper/old 1           | partition 1 of map old
TABLE
records=$(kivclaim --trace 3 partition /dev/mapper/data 1 2>&1 >/dev/null | grep -c 'SuSE version 12 or more')
check 'the same with data: release asked how often?' 2 "$records" '' asks-twice
audit_finds 'release-decides' /dev/mapper/old

scene 'The same kernel says 2.6 (setarch --uname-2.6): family 11'
asked_under=(setarch --uname-2.6)
release=$("${asked_under[@]}" uname -r)
check 'uname' 2.6 "${release:0:3}" "$release"
answers <<'TABLE'
partition /dev/mapper/old 1                | /dev/mapper/old_part1       | partition 1 of map old
partition /dev/mapper/old 2                | /dev/mapper/old_part2       | partition 2 of map old
is-partition /dev/mapper/old_part2         | yes                         | partition 2 of map old
whole /dev/mapper/old_part2                | /dev/mapper/old 2           | partition 2 of map old
claim /dev/mapper/old_part2                | 16 device-mapper            | partition 2 of map old
partition /dev/mapper/data 1               | /dev/mapper/data_part1      | no such node         | release-decides
whole /dev/mapper/data-part1               | /dev/mapper/data 1          | partition 1 of map data
whole /dev/mapper/data-part12              | /dev/mapper/data- 2         | partition 12 of map data | last-digit
partition /dev/mapper/data 12              | /dev/mapper/data_part12     | no such node         | release-decides
TABLE
audit_finds 'last-digit missing-neighbour partition-like-name path-of-a-map release-decides'
record_machine
asked_under=()
kpartx -d -p _part /dev/mapper/old

scene 'A host that says 3.5, a release of neither family: the nodes decide'
kpartx -a -s /dev/mapper/old
answers <<'TABLE'
whole /dev/mapper/old1                     | /dev/mappe 1                | partition 1 of map old | six-characters
release 3.5.0                              | done                        |
partition /dev/mapper/old 1                | /dev/mapper/old1            | partition 1 of map old
is-partition /dev/mapper/old1              | yes                         | partition 1 of map old
whole /dev/mapper/old1                     | /dev/mapper/old 1           | partition 1 of map old
partition /dev/mapper/old 3                | /dev/mapper/old             | map of sdm and sdn   | unknown-release
TABLE
audit_finds 'release-decides six-characters' /dev/mapper/old /dev/mapper/old1
kpartx -d /dev/mapper/old
