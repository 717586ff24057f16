# Puts this machine among what comes home: what its own tools say about the block devices, and a copy of what they read,
# for programs that take another root directory. See copy_of_machine.sh.
# shellcheck shell=bash
set -u

lsblk --list --noheadings --output NAME,TYPE | captured lsblk.txt
umockdev-record /dev/sd* /dev/dm-* | captured devices.umockdev

# One volume is mounted and one is swapped to, so that there are such ones.
volumes=(/dev/mapper/local-root /dev/mapper/vg00-home--dir)
mke2fs -q -t ext4 -O ^has_journal -L root -U 00000000-0000-4000-8000-00000000000a "${volumes[0]}"
mkswap -L swap -U 00000000-0000-4000-8000-00000000000b "${volumes[1]}" >/dev/null
mkdir -p /mnt
mount "${volumes[0]}" /mnt
swapon "${volumes[1]}"
udevadm trigger --subsystem-match=block
settle
lsblk --all --bytes --pairs --output KNAME,MAJ:MIN,SIZE,TYPE,RO,MODEL,HCTL,STATE,PKNAME | captured lsblk_columns.txt
lsblk --all --bytes --pairs --output KNAME,FSTYPE,LABEL,UUID,MOUNTPOINT,SERIAL,WWN | captured lsblk_contents.txt
bash /lab/guest/copy_of_machine.sh | captured machine.txt
swapoff "${volumes[1]}"
umount /mnt
wipefs -q -a "${volumes[@]}"
settle
