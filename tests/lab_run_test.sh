#!/usr/bin/env bash
# lab_run_test.sh CASE: what lab/run makes of a machine that answers, differs, says nothing, cannot start or is lost. The
# machine is a script in the place of qemu; the programs under test are copies of echo.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
chmod 711 "$tree" # the recordings are asked by a user without rights

# A tree with a built system and built programs, as lab/run wants them.
mkdir -p "$tree"/build/{lab/bookworm,release/{tools,lab,tests/modules,tests/volume_manager}} "$tree"/{bin,tmp}
chmod 711 "$tree/tmp"
cp -r lab "$tree"
cat lab/build_system <(echo bookworm) | sha256sum >"$tree/build/lab/bookworm/system.key"
tee "$tree"/build/lab/bookworm/{kernel,system.cpio.zst,versions} >/dev/null <<<'something 1'
for program in tools/kivclaim lab/lab_host tests/volume_manager/{ztkivadm,ztdisk} tests/modules/claims_too_much.so; do
    cp /bin/echo "$tree/build/release/$program"
done
printf '#!/bin/sh\nexec cat </dev/null\n' >"$tree/bin/bsdtar"
printf '#!/bin/sh\nexec cat >/dev/null\n' | tee "$tree"/bin/{zstd,sfdisk} >/dev/null

# played: what the machine does; `results` are its lines, and it sends home what is in $out.
cat >"$tree/bin/qemu-system-x86_64" <<'SCRIPT'
#!/usr/bin/env bash
set -euo pipefail
work=$(sed -E 's/.*path=([^ ]*)\/monitor.*/\1/' <<<"$*")
out=$(mktemp -d "$work/XXXXXX")
echo $$ >"$PLAYED.pid"
begins() {
    echo 'Linux version 6.1' >build/lab/bookworm/console.log
}
records() {
    mkdir -p "$out/recorded/$1"
    echo /dev/sda >"$out/recorded/$1/devices"
    bash lab/guest/all_answers.sh "$out/recorded/$1/devices" echo --sysroot "$work/out/$1" >"$out/recorded/$1/answers"
}
# shellcheck disable=SC1090 # the case
. "$PLAYED"
tar -C "$out" -cf "$work/files.tar" .
SCRIPT
chmod +x "$tree"/bin/*

# plays STATUS ARGUMENT...: runs the lab with the machine that standard input plays; it must end with the status, and
# leave no process and no file.
plays() {
    local wanted=$1 status=0
    shift
    cat >"$tree/played"
    PATH=$tree/bin:$PATH TMPDIR=$tree/tmp PLAYED=$tree/played KIVCLAIM_LAB_START_SECONDS=2 "$@" >"$tree/output" \
        2>"$tree/errors" || status=$?
    [ "$status" = "$wanted" ] || wrong "status $status, not $wanted"
    [ -z "$(ls "$tree/tmp")" ] || wrong "left in TMPDIR: $(ls -R "$tree/tmp")"
    ! kill -0 "$(cat "$tree/played.pid")" 2>/dev/null || wrong 'the machine still runs'
}
wrong() {
    printf '%s\n' "$1"
    cat "$tree/output" "$tree/errors"
    exit 1
}
# prints LINE: among the results; says LINE: all of standard error.
prints() {
    grep -qxF -- "$1" "$tree/output" || wrong "not printed: $1"
}
says() {
    [ "$(cat "$tree/errors")" = "$1" ] || wrong "standard error is not: $1"
}

case ${1:-} in
    passes)
        plays 0 "$tree/lab/run" maps <<'MACHINE'
begins
records maps
printf '%s\n' 'kernel 6.1.0' 'begin maps' 'scene Maps' 'ok something' end
MACHINE
        prints '  ok      uname -r begins with 6.1: 6.1.0'
        prints '  ok      something'
        user=$(id -un)
        prints "Each scene's machine, recorded there and asked here by ${user/root/nobody}"
        grep -qx '  ok      maps: list, audit, explain of 1 devices: the same [0-9]* bytes' "$tree/output" || wrong 'not asked'
        grep -qx 'lab: bookworm: 3 checks passed, 0 failed, [0-9]* s in the lab' "$tree/output" || wrong 'not counted'
        says ''
        ;;
    differs)
        plays 1 "$tree/lab/run" maps <<'MACHINE'
begins
records maps
echo 'lost in replay' >>"$out/recorded/maps/answers"
printf '%s\n' 'kernel 6.1.0' 'begin maps' 'ok something' end
MACHINE
        prints '  FAILED  maps: list, audit, explain of 1 devices: < lost in replay'
        ;;
    nothing_checked)
        plays 1 "$tree/lab/run" maps names <<'MACHINE'
begins
records maps
records names
printf '%s\n' 'kernel 6.1.0' 'begin maps' 'ok something' 'begin names' 'scene Names' end
MACHINE
        prints '  FAILED  the scene names never ran, or checked nothing'
        ;;
    nothing_recorded)
        plays 1 "$tree/lab/run" maps <<'MACHINE'
begins
printf '%s\n' 'kernel 6.1.0' 'begin maps' 'ok something' end
MACHINE
        prints '  FAILED  maps: nothing was recorded: the scene calls record_machine once'
        ;;
    no_accelerator)
        plays 2 env KIVCLAIM_LAB_ACCEL=kvm "$tree/lab/run" maps <<'MACHINE'
echo 'qemu: warning: something else' >&2
echo 'Could not access KVM kernel module: No such file or directory' >&2
exit 1
MACHINE
        says "lab: the machine could not be started with the accelerator 'kvm': Could not access KVM kernel module: No such file or directory; unset KIVCLAIM_LAB_ACCEL, and tcg is taken, which works everywhere"
        ;;
    hangs)
        plays 2 env KIVCLAIM_LAB_ACCEL=kvm "$tree/lab/run" maps <<<'exec sleep 600'
        says "lab: the machine could not be started with the accelerator 'kvm': its kernel did not start within 2 s; unset KIVCLAIM_LAB_ACCEL, and tcg is taken, which works everywhere"
        ;;
    stops)
        plays 2 env KIVCLAIM_LAB_ACCEL=kvm KIVCLAIM_LAB_START_SECONDS=60 "$tree/lab/run" maps <<'MACHINE'
echo '{"timestamp": {"seconds": 1}, "event": "STOP"}' >"$work/monitor.out"
echo '{"return": {"status": "internal-error", "running": false}}' >"$work/monitor.out"
exec sleep 600
MACHINE
        says "lab: the machine could not be started with the accelerator 'kvm': qemu stopped the machine (internal-error); unset KIVCLAIM_LAB_ACCEL, and tcg is taken, which works everywhere"
        ;;
    lost)
        plays 2 env KIVCLAIM_LAB_SECONDS=3 "$tree/lab/run" maps <<'MACHINE'
begins
printf '%s\n' 'kernel 6.1.0' 'begin maps' 'ok something'
exec sleep 600
MACHINE
        sed -i 's/ after [0-9]* s / after N s /' "$tree/errors"
        says "lab: the machine was lost in the scene maps after N s (limit 3 s); its console is in build/lab/bookworm/console.log"
        ;;
    panics)
        plays 2 "$tree/lab/run" maps <<'MACHINE'
begins
printf '[    0.06] Kernel panic - not syncing: no init\n[    0.07] Call Trace:\n' >>build/lab/bookworm/console.log
exit
MACHINE
        sed -i 's/ after [0-9]* s / after N s /' "$tree/errors"
        says "lab: the machine was lost before the first scene after N s (limit 1800 s): Kernel panic - not syncing: no init; its console is in build/lab/bookworm/console.log"
        ;;
    ended)
        for signal in INT TERM HUP; do
            rm -f "$tree/played.pid"
            plays $((128 + $(kill -l "$signal"))) timeout --foreground --preserve-status -s "$signal" 2 \
                "$tree/lab/run" maps <<<'begins; exec sleep 600'
        done
        ;;
    *) echo "'${1:-}' is no case" && exit 2 ;;
esac
