#!/bin/bash
# usage: power.sh CUTS [SEED]
# Cuts the power of an emulated camera whose run directory is on its flash, at random moments of the
# first half minute, and boots it again each time, with systemd and with BusyBox's init in turn. What
# PID file it finds then names a process that lives. In the folder of the image.
set -euo pipefail
here=$(dirname "$(realpath "$0")")
# shellcheck source=tests/camera/emulator.sh
source "$here/emulator.sh"
cuts=$1 seed=${2:-$$}
RANDOM=$seed
data=power.data log=power.log
inits=(init=/sbin/init init=/usr/share/camera/init)

# boot WORD...: in the background; sets `running`.
boot() {
    emulated "$data" camera.tmp=data "$@"
    "${camera[@]}" </dev/null >$log 2>&1 &
    running=$!
}

cut_power() {
    kill -KILL "$running" 2>/dev/null || true
    wait "$running" 2>/dev/null || true
}

has_row() {
    rows <$log | grep --quiet '^boot '
}

trap cut_power EXIT
slowest=0 stale=0
new_data $data
for ((number = 1; number <= cuts; ++number)); do
    init=${inits[number % 2]}
    moment=$((1000 + RANDOM % 29000))
    boot "$init"
    sleep "$((moment / 1000)).$(printf %03d $((moment % 1000)))"
    cut_power
    start=$SECONDS
    boot "$init" camera.stale camera.steps=boot
    wait_until 120 has_row || true
    cut_power
    if ! rows <$log | grep --quiet '^boot *passed'; then
        row power FAILED "seed $seed, cut $number after $moment ms, $init: $(tail -n 20 $log)"
        exit 1
    fi
    slowest=$((SECONDS - start > slowest ? SECONDS - start : slowest))
    stale=$((stale + $(grep --count 'stale PID file' $log || true)))
done
if ((stale == 0)); then
    row power FAILED "seed $seed: no cut has left a PID file"
    exit 1
fi
row power passed "$cuts cuts, seed $seed, $stale with a PID file left; well again within $slowest s"
