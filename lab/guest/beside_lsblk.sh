# Compares kivclaim list with lsblk, row by row, on this machine and on a copy of it.
# shellcheck shell=bash

columns_of_both=KNAME,MAJ:MIN,SIZE,TYPE,RO,MODEL,HCTL,STATE,PKNAME

# unpack TEXT DIRECTORY [FROM]: makes a root directory from the output of copy_of_machine.sh on the machine whose root
# is FROM. Links are copied from there, all at once: a process for each would take a minute here.
unpack() {
    local text=$1 root=$2 from=${3:-/} line directory='' i lines
    local directories=() links=() files=() contents=()
    mapfile -t lines <"$text"
    for line in "${lines[@]}"; do
        if [[ $line =~ ^\ ([^ =]+)=(.*)$ ]]; then
            files+=("$root/$directory/${BASH_REMATCH[1]}")
            contents+=("${BASH_REMATCH[2]}")
            directories+=("${files[-1]%/*}")
        elif [[ $line =~ ^\ ([^ ]+)\ -\>\  ]]; then
            links+=("$directory/${BASH_REMATCH[1]}")
        else
            directory=$line
            directories+=("$root/$directory")
        fi
    done
    printf '%s\0' "${directories[@]}" | xargs -0 mkdir -p
    (cd "$from" && printf '%s\0' "${links[@]}" | xargs -0 cp -P --parents -t "$root")
    for i in "${!files[@]}"; do
        printf '%b' "${contents[i]}" >"${files[i]}"
    done
}

# rows COMMAND...: its output for each device at each of its places, sorted. The model is changed to one form, because
# releases of lsblk print it in two ways.
rows() {
    "$@" --all --bytes --pairs --output "$columns_of_both" | sed 's/QEMU_HARDDISK/QEMU HARDDISK/' | sort
}

# list_agrees WHAT COUNT [OPTION...]: checks that list and lsblk with these options show COUNT devices and the same
# rows.
list_agrees() {
    local what=$1 count=$2 ours theirs differ
    shift 2
    ours=$(rows kivclaim list --tree "$@")
    theirs=$(rows lsblk "$@")
    differ=$(diff <(printf '%s\n' "$theirs") <(printf '%s\n' "$ours") | grep '^[<>]' || true)
    check "kivclaim list and lsblk of $what: devices, rows that differ" "$count, 0" \
        "$(cut -d ' ' -f 1 <<<"$ours" | sort -u | grep -c KNAME), $(grep -c . <<<"$differ" || true)"
    [ -z "$differ" ] || note "< lsblk, > kivclaim: $(head -n 4 <<<"$differ" | paste -sd ';')"
}

list_agrees_with_lsblk() {
    local devices=(/sys/class/block/*) copy
    copy=$(mktemp -d)
    list_agrees 'this machine' "${#devices[@]}"
    bash /lab/guest/copy_of_machine.sh >/tmp/machine.txt
    unpack /tmp/machine.txt "$copy"
    list_agrees 'a copy of it' "${#devices[@]}" --sysroot "$copy"
    rm -rf "$copy" /tmp/machine.txt
}
