# Prints the files of this machine that describe its block devices, for programs that accept another root directory,
# such as lsblk --sysroot. A line without a leading blank is a directory, as an absolute path; the lines after it are
# its files, NAME=CONTENT with the escapes of printf's %b, and its links, NAME -> TARGET. A node under /dev is a file
# with its udev properties. tests/unpack_machine makes directories and files from the output again.
# shellcheck shell=bash
set -u
shopt -s nullglob

attributes=(dev size ro removable partition start dm/name dm/uuid dm/suspended queue/rotational
    queue/logical_block_size queue/physical_block_size)
disk_attributes=(vendor model rev state type wwid serial)
# The udev properties that describe a device, without those about when and how it was found.
properties='^(DEVNAME|DEVTYPE|DM_(NAME|UUID)|ID_(FS|PART_ENTRY|PART_TABLE)_[A-Z0-9_]+|ID_(SERIAL|SERIAL_SHORT|WWN|WWN_WITH_EXTENSION|MODEL|VENDOR|REVISION|TYPE|BUS|SCSI_SERIAL))='

# file NAME PATH: prints it if it can be read; its content must have no NUL.
file() {
    local content
    { IFS= read -r -d '' content <"$2"; } 2>/dev/null || [ -n "${content:-}" ] || return 0
    content=${content//\\/\\\\}
    printf ' %s=%s\n' "$1" "${content//$'\n'/\\n}"
}

binary_file() {
    [ ! -r "$2" ] || printf ' %s=%s\n' "$1" "$(od -An -v -tx1 "$2" | tr -d '\n' | sed 's/ /\\x/g')"
}

links() {
    local link
    for link in "$1/$2"*; do
        [ ! -L "$link" ] || printf ' %s -> %s\n' "${link#"$1/"}" "$(readlink "$link")"
    done
}

device() {
    local directory=$1 name
    printf '%s\n' "${directory#/}"
    for name in "${attributes[@]}"; do
        file "$name" "$directory/$name"
    done
    links "$directory" holders/
    links "$directory" slaves/
    links "$directory" subsystem
    links "$directory" device
}

disk() {
    local directory=$1 name
    printf '%s\n' "${directory#/}"
    for name in "${disk_attributes[@]}"; do
        file "$name" "$directory/$name"
    done
    binary_file vpd_pg80 "$directory/vpd_pg80"
    binary_file vpd_pg83 "$directory/vpd_pg83"
    links "$directory" subsystem
}

# Prints the links in the directories of all block devices, and the links that udev made to their nodes.
names_in_sys() {
    local directory
    for directory in sys/block sys/class/block sys/dev/block; do
        printf '%s\n' "$directory"
        links "/$directory" ''
    done
}
names_in_dev() {
    local directory link target
    while read -r directory link target; do
        [ "$directory" = "${last:-}" ] || printf 'dev%s\n' "${directory:+/$directory}"
        last=$directory
        printf ' %s -> %s\n' "$link" "$target"
    done < <(find /dev -mindepth 2 \( -path /dev/block -o -path /dev/disk/by-diskseq \) -prune -o -type l \
        \( -lname '*/dm-*' -o -lname '*/sd*' \) -printf '%P %l\n' | sort | sed -E 's#^(.*)/([^/ ]+) #\1 \2 #')
}

# Prints a file without the lines of other properties and those that change between runs.
node() {
    local text
    text=$(udevadm info --query=property --name="/dev/$1" | grep -E "$properties" | sort)
    printf ' %s=%s\n' "$1" "${text//$'\n'/\\n}\\n"
}
udev_data() {
    local text
    [ -r "/run/udev/data/$1" ] || return 0
    text=$(grep -E "^S:|^L:|^V:|^E:${properties#^}" "/run/udev/data/$1" | grep -v '^S:disk/by-diskseq/' | sort)
    printf ' %s=%s\n' "$1" "${text//$'\n'/\\n}\\n"
}

names_in_sys
for block in /sys/class/block/*; do
    directory=$(readlink -f "$block")
    device "$directory"
    [ ! -e "$directory/device/vendor" ] || disk "$(readlink -f "$directory/device")"
done
printf 'dev\n'
for block in /sys/class/block/*; do
    node "${block##*/}"
done
names_in_dev
printf 'run/udev/data\n'
for block in /sys/class/block/*; do
    udev_data "b$(<"$block/dev")"
done
printf 'proc\n'
file swaps /proc/swaps
printf 'proc/self\n'
file mountinfo /proc/self/mountinfo
