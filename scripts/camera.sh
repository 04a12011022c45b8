#!/usr/bin/env bash
# usage: scripts/camera.sh [option...] [STEP...]
# Boots an emulated camera with the packages of this tree, built for ARM: 64 MB, one core, the root file
# system read-only, the clock in 1970. Tries the steps on it, default all, and prints a line for each.
# Makes what it boots in build/camera-image, and keeps the Debian there for the next time.
# Steps, the first ones those of tests/camera/steps, on the camera itself:
#   boot clock writes rest watchdog memory full upgrade
#   busybox   the same camera with the init script, and BusyBox's init in the place of systemd
#   network   va_mqtt and a broker here, with the cable pulled for two minutes
#   power     the power is cut, again and again
# Options:
#   -q        quick: writes are watched for one minute, not ten; the power is cut 3 times, not 20
#   -i        no steps, but a shell on the camera; its end turns the camera off
#   -b        with -i: BusyBox's init
#   -h, --help   this text
# For root, on a system that can run programs of the image (binfmt_misc); elsewhere it says NOT TRIED.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

folder=build/camera-image
build=build/camera-packages
on_camera=(boot clock writes rest watchdog memory full upgrade)
steps=()
quick=false
interactive=false
init=
while (($#)); do
    case $1 in
    -q) quick=true ;;
    -i) interactive=true ;;
    -b) init=init=/usr/share/camera/init ;;
    boot | clock | writes | rest | watchdog | memory | full | upgrade | busybox | network | power) steps+=("$1") ;;
    *) usage_error ;;
    esac
    shift
done
((${#steps[@]})) || steps=("${on_camera[@]}" busybox network power)
quiet_seconds=600 cuts=20
if $quick; then
    quiet_seconds=60 cuts=3
fi

can_run_arm() {
    local formats=/proc/sys/fs/binfmt_misc
    [[ -e $formats/register ]] || mount -t binfmt_misc binfmt_misc $formats || return
    [[ -e $formats/qemu-arm ]] || cat /usr/lib/binfmt.d/qemu-arm.conf >$formats/register
}

# The packages as an integrator has them, but for the stand-in in the place of the chip's libraries; as
# two versions, for an upgrade.
make_packages() {
    local version libraries=$root/$folder/libraries
    rm -rf "$libraries"
    mkdir "$libraries"
    tar --extract --file "$folder/base.tar" --directory "$libraries" --strip-components 4 \
        --wildcards './usr/lib/arm-linux-gnueabihf/lib*.so*' || {
        echo "$folder/base.tar is broken: remove it"
        return 1
    }
    configure arm -B "$build" -DVA_TESTS=OFF -DVA_WERROR=ON -DVA_MQTT=ON \
        -DVA_FIRMWARE_DIR=/mnt/ubifs_fw/vanafw -DVA_MOSQUITTO_INCLUDE_DIR=/usr/include \
        -DVA_MOSQUITTO_LIBRARY="$libraries/libmosquitto.so.1" -DCMAKE_EXE_LINKER_FLAGS="-Wl,-rpath-link,$libraries" &&
        cmake --build "$build" || return
    rm -rf "$folder/packages"
    for version in 0.1 0.2; do
        (cd "$build" && cpack -D CPACK_PACKAGE_VERSION=$version -B "$root/$folder/packages/$version") || return
    done
}

# have_passed LOG STEP...: each of them; says so of one that has left no word.
have_passed() {
    local step seen failed=0
    seen=$(rows <"$1")
    for step in "${@:2}"; do
        [[ $'\n'$seen =~ $'\n'"$step "\ *(passed|FAILED|not) ]] || row "$step" FAILED "no word; the console: $folder/$1"
        [[ ${BASH_REMATCH[1]-} == passed ]] || failed=1
    done
    return "$failed"
}

# try_on_camera LOG WORDS STEP...: in one boot.
try_on_camera() {
    local log=$1 words=$2 list
    shift 2
    list=$(IFS=, && echo "$*")
    new_data "$log.data"
    # shellcheck disable=SC2086
    emulated "$log.data" $words camera.steps="$list" camera.seconds="$quiet_seconds"
    : >"$log"
    timeout $((900 + quiet_seconds)) "${camera[@]}" </dev/null >"$log" 2>&1 &
    tail --follow --lines=+1 --pid=$! "$log" | rows
    have_passed "$log" "$@"
}

# shellcheck disable=SC2046,SC2317
end_children() {
    kill $(jobs -p) 2>/dev/null || true
}

wants() {
    [[ " ${steps[*]} " == *" $1 "* ]]
}

not_tried() {
    say "NOT TRIED: the emulated camera; it takes root, and binfmt_misc for ARM programs"
    exit
}

((EUID == 0)) || not_tried
require "${camera_packages[@]}"
can_run_arm || not_tried
mkdir -p "$folder"
trap end_children EXIT
say "makes the image, in $folder"
tests/camera/image.sh "$folder"
make_packages >"$folder/build.log" 2>&1 || die "no packages: $(tail "$folder/build.log")"
tests/camera/image.sh "$folder" "$build"
cd "$folder"
# shellcheck source=tests/camera/emulator.sh
source "$root/tests/camera/emulator.sh"

if $interactive; then
    say "the camera's shell; its end turns the camera off"
    new_data console.data
    console=mon:stdio
    emulated console.data $init camera.console
    exec "${camera[@]}"
fi

# Two cameras at a time: the second one's rows come last.
try_second() {
    local failed=0
    if wants busybox; then
        say "with BusyBox's init"
        try_on_camera busybox.log init=/usr/share/camera/init boot busybox clock full upgrade || failed=1
    fi
    # A signal ends the wait, and the step too.
    if wants network; then
        "$root/tests/camera/network.sh" &
        wait $! || failed=1
    fi
    if wants power; then
        "$root/tests/camera/power.sh" "$cuts" &
        wait $! || failed=1
    fi
    return "$failed"
}

failed=0
first=()
for step in "${on_camera[@]}"; do
    ! wants "$step" || first+=("$step")
done
(trap end_children EXIT && try_second) >second.rows &
second=$!
((${#first[@]} == 0)) || try_on_camera camera.log "" "${first[@]}" || failed=1
tail --follow --lines=+1 --pid="$second" second.rows
wait "$second" || failed=1
exit "$failed"
