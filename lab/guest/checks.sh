# Functions for scenes. A scene is a bash script in scenes/; it begins with `scene TITLE`. Results go to file descriptor
# 3, one a line, each after one of the words scene, ok, failed and note.
# shellcheck shell=bash

scene() {
    printf 'scene %s\n' "$1" >&3
}

# note TEXT: prints information that is not a check, such as a time.
note() {
    printf 'note %s\n' "$1" >&3
}

# check QUESTION EXPECTED ANSWER [KERNEL [QUIRK]]: the answer must be the expected one. KERNEL is what the kernel says;
# QUIRK is the entry of docs/quirks.md that explains why the answer differs from it.
check() {
    local line
    printf -v line '%-48s %s' "$1" "$3"
    [ -z "${4:-}" ] || printf -v line '%-77s kernel: %s' "$line" "$4"
    if [ "$3" != "$2" ]; then
        printf 'failed %s (expected: %s)\n' "$line" "$2" >&3
    else
        printf 'ok %s%s\n' "$line" "${5:+ (quirk: $5)}" >&3
    fi
}

# yes_or_no COMMAND...: prints whether the command succeeds, for checks.
yes_or_no() {
    if "$@" >/dev/null 2>&1; then echo yes; else echo no; fi
}

# Waits until udev has nothing to do; on a busy machine, that may take longer than udevadm's default limit.
settle() {
    udevadm settle --timeout=1200
}

# within SECONDS COMMAND...: waits until the command succeeds.
within() {
    local end=$((SECONDS + $1))
    shift
    until "$@" >/dev/null 2>&1; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.1
    done
}

# Functions that are called for each row of a table return their result in a variable, because processes are slow here.

# Sets `names` to the devices in a sysfs directory, maps by their names, as in "sdc and sdd".
device_names() {
    local device name
    names=''
    for device in "$1"/*; do
        [ -e "$device" ] || continue
        name=${device##*/}
        [ ! -r "$device/dm/name" ] || read -r name <"$device/dm/name"
        names+="${names:+ and }$name"
    done
}

# Sets `major` and `minor` to the numbers of the device at PATH. The stat of old releases cannot print them in decimal.
device_number() {
    read -r major minor < <(stat -L -c '%t %T' "$1") || return 1
    major=$((16#$major)) minor=$((16#$minor))
}

# Sets `truth` to what sysfs says about the node PATH, found by the node's number.
kernel_says() {
    local major minor number device text
    truth='no such node'
    [ ! -d "$1" ] || truth='a directory'
    [ -b "$1" ] || return 0
    device_number "$1"
    number=$major:$minor
    device=/sys/dev/block/$number
    if [ ! -e "$device" ]; then
        truth="no device $number"
    elif [ -r "$device/dm/uuid" ]; then
        read -r text <"$device/dm/uuid" || true
        mapping_truth "$device" "$text"
    elif [ -r "$device/partition" ]; then
        read -r text <"$device/partition"
        truth="partition $text of disk $(basename "$(readlink -f "$device/..")")"
    else
        device_names "$device/holders"
        truth="disk${names:+, used by $names}"
    fi
}

# The part of kernel_says about a device-mapper device with this uuid.
mapping_truth() {
    device_names "$1/slaves"
    case $2 in
        mpath-*) truth="map of $names" ;;
        part[0-9]*-mpath-*)
            truth=${2#part}
            truth="partition ${truth%%-*} of map $names"
            ;;
        LVM-*) truth='logical volume' ;;
        *) truth='device-mapper node' ;;
    esac
}

# Stores standard input as a captured file if the lab runs with --capture.
captured() {
    if [ -f /lab/capture ]; then
        mkdir -p "$(dirname "/out/captured/$1")"
        cat >"/out/captured/$1"
    else
        cat >/dev/null
    fi
}

# record_machine [EVERY [OPTION...]]: records this machine as the scene has made it, and what kivclaim answers about it,
# with an explanation of every device, or of every EVERYth. The options are those of `record`. lab/run asks the recording
# the same questions. Each scene calls this once.
record_machine() {
    local every=${1:-1} place=/out/recorded/${scene_name:?} status=0
    # While udev works, a link that several devices claim may change.
    settle
    mkdir -p "$place"
    "${asked_under[@]}" kivclaim record "${@:2}" "$place/machine.tar.zst" || status=$?
    check 'kivclaim record: exit status' 0 "$status"
    kivclaim list --all --noheadings --raw --output DEVICE | awk -v every="$every" 'NR % every == 0' >"$place/devices"
    keep_listing
    "${asked_under[@]}" bash /lab/guest/all_answers.sh "$place/devices" kivclaim >"$place/answers"
    mv /sbin/lvdisplay.real /sbin/lvdisplay
}

# Replaces lvdisplay by a script that prints what it prints now: here it takes seconds, and it runs for each device that is
# explained.
keep_listing() {
    local status=0
    lvdisplay >/run/listing 2>/run/listing_errors || status=$?
    mv /sbin/lvdisplay /sbin/lvdisplay.real
    printf '#!/bin/sh\ncat /run/listing\ncat /run/listing_errors >&2\nexit %d\n' "$status" >/sbin/lvdisplay
    chmod +x /sbin/lvdisplay
}

# Asks the lab's host: questions on standard input, one a line. Uses the host that `open_host` started on file
# descriptors 4 and 5; otherwise a new one for all questions, started with `asked_under`, which runs lvdisplay only
# once.
asked_under=()
ask() {
    local question answer
    if [ ! -e /dev/fd/4 ]; then
        "${asked_under[@]}" lab_host --snapshot
        return
    fi
    while IFS= read -r question; do
        printf '%s\n' "$question" >&4
        IFS= read -r -t 600 answer <&5 && printf '%s\n' "$answer"
    done
}

open_host() {
    coproc host { exec lab_host; }
    exec 4>&"${host[1]}" 5<&"${host[0]}"
}

close_host() {
    local input=${host[1]}
    exec {input}>&- 4>&- 5<&-
    wait %%
}

# audit_finds SLUGS [PATH...]: checks that one of these quirks explains every difference between library and kernel, for
# all block devices of the kernel or those given, and that each of these quirks occurs. A failed listing makes answers
# unsure.
audit_finds() {
    local expected=$1 status=0 wanted=0 found devices
    shift
    [[ $expected != *failed-listing* ]] || wanted=3
    devices=("$@")
    [ $# -gt 0 ] || devices=(/sys/class/block/*)
    "${asked_under[@]}" kivclaim audit --json "$@" >/tmp/audit.json || status=$?
    found=$(concerned | cut -d ' ' -f 2 | sort -u | paste -sd ' ')
    check 'kivclaim audit: exit status, devices, quirks' "$wanted, ${#devices[@]}: $expected" \
        "$status, $(audited_count devices): $found"
}

# Prints a line for each difference in the last audit: the device and the quirk that explains it.
concerned() {
    awk -F '"' '$2 == "device" { device = $4 } $2 == "quirk" && $4 != "" { print device, $4 }' /tmp/audit.json
}

# concerns QUIRK DEVICE...: checks that in the last audit, the quirk explains one difference of each of these devices,
# and of no other device.
concerns() {
    local quirk=$1 expected
    shift
    expected=$(printf '%s\n' "${@##*/}" | sort | paste -sd ' ')
    check "kivclaim audit: devices with $quirk" "$expected" \
        "$(concerned | awk -v quirk="$quirk" '$2 == quirk { sub(".*/", "", $1); print $1 }' | sort | paste -sd ' ')"
}

# Prints a number from the summary of the last audit.
audited_count() {
    grep -oE "\"$1\": [0-9]+" /tmp/audit.json | tail -n 1 | grep -oE '[0-9]+'
}

# trim NAME TEXT: sets the variable NAME to TEXT without blanks at its ends.
trim() {
    local text=${2#"${2%%[![:space:]]*}"}
    printf -v "$1" '%s' "${text%"${text##*[![:space:]]}"}"
}

# Sets `device` to the device that the kernel is asked about: the one in the question, or for `partition` the answer.
device_in_question() {
    local question=$1 answer=$2 word
    device=''
    for word in $question; do
        [[ $word != /* ]] || device=$word
    done
    [[ " $question" != *' partition '* ]] || device=$answer
}

# answers <<TABLE: checks rows of QUESTION | ANSWER | what the KERNEL says [| QUIRK]. One host is asked all questions;
# the kernel is asked about the device in the question, and for `partition` about the answer.
answers() {
    local row rows=() questions=() given i question expected kernel quirk device truth
    while IFS= read -r row; do
        trim question "${row%%|*}"
        rows+=("$row")
        questions+=("$question")
    done
    mapfile -t given < <(printf '%s\n' "${questions[@]}" | ask)
    for i in "${!rows[@]}"; do
        IFS='|' read -r _ expected kernel quirk <<<"${rows[i]}"
        trim expected "$expected"
        trim kernel "$kernel"
        trim quirk "$quirk"
        device_in_question "${questions[i]}" "${given[i]:-}"
        truth=''
        [ -z "$device" ] || kernel_says "$device"
        if [ "$truth" != "$kernel" ]; then
            check "${questions[i]}" "$expected; kernel: $kernel" "${given[i]:-no answer}; kernel: $truth"
        else
            check "${questions[i]}" "$expected" "${given[i]:-no answer}" "$truth" "$quirk"
        fi
    done
}

# command_agrees PATH...: checks that the command gives the same answers as the host.
command_agrees() {
    local host command
    host=$(printf 'claim %s\n' "$@" | ask | paste -d ' ' - <(printf '%s\n' "$@"))
    command=$(printf '%s\n' "$@" | "${asked_under[@]}" kivclaim claim -)
    check "kivclaim claim of $# devices: as the host says?" yes "$(yes_or_no test "$command" = "$host")"
}
