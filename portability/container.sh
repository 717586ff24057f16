#!/usr/bin/env bash
# Runs a command in a root directory with the privileges that container engines give by default: container.sh ROOT
# REFUSE_CALLS COMMAND [ARGUMENT...]. Run it as root, as the first process of a new mount and PID namespace: all mounts
# and processes end with it.
set -euo pipefail
root=$1 refuse_calls=$2
shift 2

capabilities=(chown dac_override fsetid fowner mknod net_raw setgid setuid setfcap setpcap net_bind_service sys_chroot
    kill audit_write)

mount_kernel_files() {
    local name
    mount -t proc -o nosuid,nodev,noexec proc "$root/proc"
    for name in bus fs irq sys sysrq-trigger; do
        [ -e "$root/proc/$name" ] || continue
        mount --bind "$root/proc/$name" "$root/proc/$name"
        mount -o remount,bind,ro,nosuid,nodev,noexec "$root/proc/$name"
    done
    mount -t sysfs -o ro,nosuid,nodev,noexec sysfs "$root/sys"
}

make_devices() {
    local name major minor
    mount -t tmpfs -o nosuid,mode=755 tmpfs "$root/dev"
    while read -r name major minor; do
        mknod -m 666 "$root/dev/$name" c "$major" "$minor"
    done <<'TEXT'
null 1 3
zero 1 5
full 1 7
random 1 8
urandom 1 9
tty 5 0
TEXT
    mkdir "$root/dev/pts" "$root/dev/shm"
    mount -t devpts -o newinstance,nosuid,noexec,ptmxmode=0666,mode=620 devpts "$root/dev/pts"
    mount -t tmpfs -o nosuid,nodev,noexec,mode=1777 shm "$root/dev/shm"
    ln -s pts/ptmx "$root/dev/ptmx"
    ln -s /proc/self/fd "$root/dev/fd"
    for name in 0:stdin 1:stdout 2:stderr; do
        ln -s "/proc/self/fd/${name%:*}" "$root/dev/${name#*:}"
    done
}

umask 022
mount_kernel_files
make_devices
# The filter is installed before the capabilities are dropped, so that no_new_privs is not needed. The signals are reset
# because a background job of a shell script ignores some, which a container does not.
exec "$refuse_calls" setpriv --inh-caps=-all "--bounding-set=-all$(printf ',+%s' "${capabilities[@]}")" \
    chroot "$root" env -i --default-signal PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
    ${http_proxy:+"http_proxy=$http_proxy"} ${https_proxy:+"https_proxy=$https_proxy"} \
    ${no_proxy:+"no_proxy=$no_proxy"} "$@"
