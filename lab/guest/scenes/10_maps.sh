# Multipath maps over two paths each, and their partitions as udev names them.
# shellcheck shell=bash
scene 'Multipath maps of two paths, partitions named by udev'
answers <<'TABLE'
claim /dev/mapper/plain                    | 16 device-mapper            | map of sda and sdb
is-partition /dev/mapper/plain             | no                          | map of sda and sdb
whole /dev/mapper/plain                    | /dev/mapper/plain 0         | map of sda and sdb
claim /dev/mapper/data                     | 16 device-mapper            | map of sdc and sdd
is-partition /dev/mapper/data              | no                          | map of sdc and sdd
partition /dev/mapper/data 1               | /dev/mapper/data-part1      | partition 1 of map data
partition /dev/mapper/data 12              | /dev/mapper/data-part12     | partition 12 of map data
partition /dev/mapper/data 13              | /dev/mapper/data-part13     | no such node
claim /dev/mapper/data-part1               | 16 device-mapper            | partition 1 of map data
is-partition /dev/mapper/data-part1        | yes                         | partition 1 of map data
whole /dev/mapper/data-part1               | /dev/mapper/data 1          | partition 1 of map data
is-partition /dev/mapper/data-part9        | yes                         | partition 9 of map data
whole /dev/mapper/data-part9               | /dev/mapper/data 9          | partition 9 of map data
claim /dev/mapper/data-part10              | 16 device-mapper            | partition 10 of map data
is-partition /dev/mapper/data-part10       | yes                         | partition 10 of map data
whole /dev/mapper/data-part10              | /dev/mapper/data- 0         | partition 10 of map data | last-digit
is-partition /dev/mapper/data-part12       | yes                         | partition 12 of map data
whole /dev/mapper/data-part12              | /dev/mapper/data- 2         | partition 12 of map data | last-digit
TABLE

scene 'A map whose alias ends in a digit, with partitions 2 and 12'
answers <<'TABLE'
claim /dev/mapper/disk7                    | 16 device-mapper            | map of sde and sdf
is-partition /dev/mapper/disk7             | no                          | map of sde and sdf
whole /dev/mapper/disk7                    | /dev/mapper/disk7 0         | map of sde and sdf
partition /dev/mapper/disk7 2              | /dev/mapper/disk7-part2     | partition 2 of map disk7
whole /dev/mapper/disk7-part2              | /dev/mapper/disk7 2         | partition 2 of map disk7
partition /dev/mapper/disk7 12             | /dev/mapper/disk7-part12    | partition 12 of map disk7
is-partition /dev/mapper/disk7-part12      | no                          | partition 12 of map disk7 | missing-neighbour
whole /dev/mapper/disk7-part12             | /dev/mapper/disk7-part12 0  | partition 12 of map disk7 | missing-neighbour
TABLE

scene 'Maps whose aliases look like partitions'
answers <<'TABLE'
claim /dev/mapper/logs-part1               | 16 device-mapper            | map of sdg and sdh
is-partition /dev/mapper/logs-part1        | yes                         | map of sdg and sdh       | partition-like-name
whole /dev/mapper/logs-part1               | /dev/mapper/logs 1          | map of sdg and sdh       | partition-like-name
partition /dev/mapper/logs-part1 1         | /dev/mapper/logs-part1-part1 | partition 1 of map logs-part1
whole /dev/mapper/logs-part1-part1         | /dev/mapper/logs-part1 1    | partition 1 of map logs-part1
is-partition /dev/mapper/mpath             | no                          | map of sdi and sdj
is-partition /dev/mapper/mpath1            | yes                         | map of sdk and sdl       | partition-like-name
whole /dev/mapper/mpath1                   | /dev/mapper/ 1              | map of sdk and sdl       | partition-like-name
TABLE
command_agrees /dev/mapper/{plain,data,data-part12,disk7,logs-part1,mpath1} /dev/sda
audit_finds 'last-digit missing-neighbour partition-like-name path-of-a-map'
record_machine
