#!/usr/bin/env bash
# usage: scripts/test-video.sh [SEED...]
# Makes clips whose content is known, runs va_video on them, and checks what it reported, and which
# alarms `va` raised. A SEED (default 1) makes a clip. VA_PRESET=asan, for instance, takes that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
# shellcheck source=scripts/daemon.sh
source "$root/scripts/daemon.sh"

photographs=python3-skimage # a package that has one of a face
(($#)) || set -- 1

# judge NAME SETTING...: makes a clip and judges what va_video reports of it.
judge() {
    local name=$1 verdict
    shift
    "$root/tests/video/make_clip.py" "$name.avi" "$@" >"$name.truth"
    "$bin/va_video" --fast "$name.avi" - >"$name.lines" 2>"$name.log" || die "$(cat "$name.log")"
    verdict=$("$root/tests/video/judge.py" "$name.truth" "$name.lines") || die "$verdict"
    say "$verdict"
}

get_face() {
    apt-get -o APT::Sandbox::User=root download "$photographs" >/dev/null
    dpkg-deb --fsys-tarfile "$photographs"_*.deb |
        tar --extract --to-stdout --wildcards '*/astronaut.png' >face.png
}

# With a line down the middle each crossing raises an alarm.
judge_alarms() {
    local name=$1 crossings alarms client
    printf '%s\n' Properties.ImageSource.Sensor=imx122 'Properties.Image.ProfileMode=2 MEGA' \
        EventDetection.VumeruOD=yes CrossLine.C0.{Start,End}X=5000 CrossLine.C0.StartY=0 \
        CrossLine.C0.EndY=9999 >store
    echo "feed eyes" >scene
    start_daemon
    "${dump[@]}" vmf >alarms 2>dump.log &
    client=$!
    wait_until 20 grep --quiet connected dump.log || die "va_dump does not connect"
    "$bin/va_video" "$name.avi" eyes 2>"$name.log" || die "$(cat "$name.log")"
    crossings=$(grep --count ^cross "$name.truth")
    # shellcheck disable=SC2016 # counted again each time
    wait_until 5 eval '(($(wc -l <alarms) >= crossings))' || true
    stop_daemon
    kill -TERM "$client"
    wait "$client" || true # 3: no record was received
    alarms=$(wc -l <alarms)
    ((alarms == crossings)) || die "$name: $alarms alarms of $crossings crossings
$(cat alarms "$name.truth")"
    say "$name: $alarms alarms of $crossings crossings"
}

require "${video_packages[@]}" python3-opencv
say "packages are installed after $SECONDS s"
configure "$preset" -DVA_VIDEO=ON
build "$preset" va_here va_dump va_video make_firmware
enter_folder
get_face
for seed; do
    judge "busy$seed" seed="$seed" walkers=6 pairs=1 standing=1 face=face.png
    judge "tampered$seed" seed="$seed" seconds=18 covered=4 turned=9 dark=14
    judge_alarms "busy$seed"
done
say "reported as shown, after $SECONDS s"
