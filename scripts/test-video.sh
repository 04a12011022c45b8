#!/usr/bin/env bash
# usage: scripts/test-video.sh [NAME|SEED...]
# Makes clips whose content is known, runs va_video on them, and checks what it reported, and which
# alarms `va` raised. NAMEs select among the clips (default: all); each is made of SEEDs in place of its
# own. VA_PRESET=asan, for instance, takes that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
# shellcheck source=scripts/daemon.sh
source "$root/scripts/daemon.sh"

photographs=python3-skimage # a package that has one of a face

# Faces are detected where a `face` is set, if only to nothing: then none may be seen.
clips='
busy         seed=1 walkers=6 pairs=1 standing=1 face=face.png
busy5        seed=2 walkers=4 standing=2 seconds=12 rate=5
busy50       seed=3 walkers=5 pairs=1 width=320 height=240 rate=50
busy1080     seed=4 walkers=4 pairs=1 standing=1 width=1920
tampered     seed=5 covered=4 turned=9 dark=14 seconds=18 face=
hand         seed=6 cover=2 covered=4 seconds=8 width=320 height=240
wall         seed=7 wall=1 tall=0.75 walkers=4 seconds=18
wall_dark    seed=8 wall=2 tall=0.5 walkers=3 seconds=14 width=320 height=240
wall_black   seed=9 wall=3 tall=0.35 walkers=3 seconds=14 rate=5
wall_covered seed=10 wall=1 covered=4 turned=9 seconds=14
wall_hand    seed=11 wall=2 cover=2 covered=4 seconds=8
door         seed=12 wall=1 door=1 tall=0.6 walkers=3 seconds=14
door_covered seed=13 wall=1 door=1 covered=4 turned=9 dark=14 seconds=18
shake        seed=14 shake=3 walkers=10 seconds=30 face=
shake_small  seed=15 shake=3 walkers=4 seconds=14 width=320 height=240
cloud        seed=16 cloud=4 walkers=5 seconds=20
cloud_small  seed=17 cloud=3 walkers=3 seconds=14 width=320 height=240 rate=50
stand        seed=18 stand=2 seconds=26
stand_small  seed=19 stand=1 walkers=3 seconds=14 width=320 height=240
night        seed=20 night=1 walkers=5 seconds=15
night_small  seed=21 night=1 walkers=3 seconds=11 width=320 height=240
'

# judge NAME SETTING...: makes a clip and judges what va_video reports of it.
judge() {
    local name=$1 faces=--no-faces
    shift
    [[ $* != *face=* ]] || faces=
    "$root/tests/video/make_clip.py" "$name.avi" "$@" >"$name.truth"
    "$bin/va_video" --fast ${faces:+"$faces"} "$name.avi" - >"$name.lines" 2>"$name.log" ||
        die "$(cat "$name.log")"
    "$root/tests/video/judge.py" "$name.truth" "$name.lines" || failed+=("$name")
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

names=() seeds=() failed=()
for argument; do
    if [[ $argument =~ ^[0-9]+$ ]]; then
        seeds+=("seed=$argument")
    elif grep --quiet "^$argument " <<<"$clips"; then
        names+=("$argument")
    else
        usage_error
    fi
done

require "${video_packages[@]}" python3-opencv
say "packages are installed after $SECONDS s"
configure "$preset" -DVA_VIDEO=ON
build "$preset" va_here va_dump va_video make_firmware
enter_folder
get_face
while read -ra row; do
    name=${row[0]-}
    [[ $name && (-z ${names[*]} || " ${names[*]} " == *" $name "*) ]] || continue
    for seed in "${seeds[@]-}"; do
        clip=$name${seed:+_${seed#*=}}
        judge "$clip" "${row[@]:1}" ${seed:+"$seed"}
        [[ $name != busy ]] || judge_alarms "$clip"
        rm "$clip.avi"
    done
done <<<"$clips"
((${#failed[@]} == 0)) || die "not as shown: ${failed[*]}"
say "reported as shown, after $SECONDS s"
