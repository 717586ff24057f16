# The volume manager's tools, simulated at their real paths: their output follows the state of the real disks.
# shellcheck shell=bash
export KIVCLAIM_VM_STATE=/run/volume_manager

is_running() {
    [ "$(<"/sys/block/$1/device/state")" = running ]
}
# The disk in use. As with a volume manager, another one is used when it fails, and it is not used again by itself.
in_use=sda
# volume_manager_sees [LINE...]: sets its disks as the kernel has them now, and lines for its behaviour.
volume_manager_sees() {
    local disk type=PRIMARY state
    for disk in sda sdb; do
        is_running "$in_use" || ! is_running "$disk" || in_use=$disk
    done
    for disk in sda sdb; do
        state=DISABLED
        ! is_running "$disk" || state=ENABLED
        [ "$state:$disk" != "ENABLED:$in_use" ] || state='ENABLED(A)'
        printf 'path kiv0_1 %s %s %s\n' "$disk" "$state" "$type"
        type=SECONDARY
    done >"$KIVCLAIM_VM_STATE"
    [ $# = 0 ] || printf '%s\n' "$@" >>"$KIVCLAIM_VM_STATE"
}
disks_are() {
    echo "$1" >/sys/block/sda/device/state
    echo "$2" >/sys/block/sdb/device/state
}
kernel_states() {
    printf 'sda %s, sdb %s' "$(</sys/block/sda/device/state)" "$(</sys/block/sdb/device/state)"
}
# active QUESTION EXPECTED [QUIRK]: checks the answer to `active-path QUESTION`; its records are in /tmp/records.
active() {
    local answer
    # shellcheck disable=SC2086 # options and path are words
    answer=$(kivclaim --trace 6 active-path $1 2>/tmp/records)
    check "active-path $1" "$2" "$answer" "$(kernel_states)" "${3:-}"
}
# ran QUIRK COMMAND...: checks that the last lookup ran these commands, in this order.
ran() {
    local quirk=$1 command number=0 commands
    shift
    mapfile -t commands < <(sed -nE 's#.*ExecuteCommand command: /usr/sbin/(.*)#\1#p' /tmp/records | tr -s ' ' | sed 's/ $//')
    for command in "$@"; do
        check "it runs, as number $((number + 1))" "$command" "${commands[number]:-nothing}"
        number=$((number + 1))
    done
    check 'commands in all' "$#" "${#commands[@]}" '' "$quirk"
}
has_record() {
    yes_or_no grep -qF -- "$1" /tmp/records
}

scene 'The volume manager (simulated): the active path follows the disks'
active /dev/sdb /dev/sdb
check 'why?' 'the multipathing tool /usr/sbin/ztkivadm is not installed' "$(sed -n 's/.*as it was given: //p' /tmp/records)"
cp /lab/tools/ztkivadm /lab/tools/ztdisk /usr/sbin
volume_manager_sees
active /dev/sdb /dev/sda
disks_are offline running
volume_manager_sees
active /dev/sda /dev/sdb
disks_are running running
volume_manager_sees
active /dev/sda /dev/sdb
note 'the volume manager goes back to sda'
in_use=sda
volume_manager_sees
active /dev/sda /dev/sda
disks_are offline offline
volume_manager_sees
active /dev/sdb /dev/sda last-resort
disks_are running running

scene 'The commands of the lookups, and the results of failures'
volume_manager_sees
active '--waited /dev/sdb' /dev/sda
ran waited-refreshed 'ztkivadm getkivnode nodename=sdb' 'ztkivadm getsubpaths kivnodename=kiv0_1'
check 'output lines run together in the record?' yes "$(has_record 'PATHS-----')" '' joined-lines
active /dev/sdb /dev/sda
ran waited-refreshed 'ztkivadm getkivnode nodename=sdb' 'ztdisk rm kiv0_1' 'ztdisk scandisks' \
    'ztkivadm getkivnode nodename=sdb' 'ztkivadm getsubpaths kivnodename=kiv0_1'
record_machine 1 --volume-manager sdb
volume_manager_sees 'fail rm 7 busy'
active /dev/sdb /dev/sda failed-removal
check 'the record says that the removal failed?' yes "$(has_record 'removing disk from ztvm db is failed.')" '' failed-removal
volume_manager_sees 'garbage getkivnode nothing' 'warn getkivnode to say'
active /dev/sdb /dev/sdb no-table
ran empty-removal 'ztkivadm getkivnode nodename=sdb' 'ztdisk rm' 'ztdisk scandisks' \
    'ztkivadm getkivnode nodename=sdb' 'ztkivadm getsubpaths kivnodename='
rm /usr/sbin/ztdisk
volume_manager_sees
active /dev/sdb /dev/sda
check 'ztdisk is missing: the record of the exception' yes \
    "$(has_record 'ExecuteCommand - exception thrown in command execution.')" '' exception-text
answers <<'TABLE'
active-path /dev/sdb                       | /dev/sdb                    | disk, used by plain | interface-path
TABLE
rm /usr/sbin/ztkivadm
