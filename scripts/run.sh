#!/usr/bin/env bash
# usage: scripts/run.sh [option...] [argument of va...]
# Builds and runs `va` on the software stand-in with the demonstration scene, and va_dump beside it.
# Ctrl-C ends both.
#   -s             also a page with the picture of the scene, for a browser
#   -m SOURCE      real video in place of the scene, behind the boxes of that page and by way of va_video:
#                  a file, a device such as /dev/video0, a URL (rtsp, http). Prints events, not records.
#                  The end of a file ends all
#   -l             with -m: repeat a file
#   -r FILE        no `va`: the page and the events of what `va_dump -w FILE` recorded, at its pace
#   -v             show all that `va` prints when it starts
#   --run-dir DIR  its sockets, PID file and control FIFO in DIR; kept for later runs of this build
#   -h, --help     this text
# Arguments of `va` select modules: -o objects, -f faces, -t tamper alarm, -d stabilisation; none:
# what the settings say. VA_PRESET=asan, for instance, runs that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
cd "$OLDPWD" # which the paths among the arguments are relative to

va_arguments=()
options=()
draws=false
source=
capture=
loop=()
verbose=false
passing_on=
while (($#)); do
    case $1 in
    -s) draws=true ;;
    -l) loop=(--loop) ;;
    -m)
        (($# > 1)) || usage_error
        shift
        draws=true
        source=$(video_source "$1")
        ;;
    -r)
        (($# > 1)) || usage_error
        shift
        [[ -f $1 ]] || die "there is no file $1"
        capture=$(realpath -- "$1")
        ;;
    -v) verbose=true ;;
    --run-dir)
        (($# > 1)) || usage_error
        shift
        options+=(-DVA_RUN_DIR="$(realpath --canonicalize-missing -- "$1")")
        ;;
    *) va_arguments+=("$1") ;;
    esac
    shift
done
cd "$root"

preset=${VA_PRESET:-host}
bin=build/$preset/bin
store=$root/build/$preset/demo/nvram.conf
picture=$root/build/$preset/demo/picture.html
still=$root/build/$preset/demo/still.jpg
eyes_log=$root/build/$preset/demo/video.log
scene=$root/platform/sim/demo.scene
targets=(va va_dump va_picture make_firmware)
printed=()
drawn=()

# `va` makes the directory too, but only after its PID file would have gone there.
make_run_dir() {
    if [[ -e $1 && ! -O $1 ]]; then
        say "$1 belongs to user $(stat --format=%U "$1")" >&2
        ((EUID == 0)) || die "have it removed, or configure with -DVA_RUN_DIR=another directory"
    fi
    mkdir -p "$1"
}

# Passes on what `va` prints, but for the parameters it lists in its first second. When it ends within
# that second, they may tell why.
pass_on() {
    local end='' line='' piece folded=()
    trap '' INT TERM HUP # ends with `va`
    while [[ -z $end ]] || ((${EPOCHREALTIME/[.,]/} < end)); do
        if IFS= read -r -t 0.1 piece; then
            case $line$piece in
            "VA: "*) echo "$line$piece" ;; # its log; it may wait for an earlier instance
            *)
                folded+=("$line$piece")
                : "${end:=$((${EPOCHREALTIME/[.,]/} + 1000000))}"
                ;;
            esac
            line=
        elif (($? > 128)); then # in time: part of a line at most
            line+=$piece
        else
            printf '%s\n' "${folded[@]}"
            return
        fi
    done
    say "${#folded[@]} lines of the start left out, -v shows them"
    printf '%s' "$line"
    exec cat
}

if [[ $source ]]; then
    require "${video_packages[@]}"
    options+=(-DVA_VIDEO=ON)
    targets+=(va_video)
    printed=(--events)
    drawn=(--still "$still")
fi
if [[ $capture ]]; then
    picture=${picture%/*}/capture.html # beside that of a daemon
    targets=(va_dump va_picture)
    [[ -z $source && ${#va_arguments[@]} == 0 ]] || usage_error
fi
configure "$preset" "${options[@]}"
build "$preset" "${targets[@]}"

# Job control gives each process a group of its own, so that Ctrl-C reaches only this script,
# which then ends both in order.
set -m
children=()
clients=()
stop_requests=0
sigterm=15

# shellcheck disable=SC2317
stop() {
    stop_requests=$((stop_requests + 1))
    stop_children
}

stop_children() {
    ((${#children[@]} == 0)) || kill -TERM "${children[@]}" 2>/dev/null || true
}

# end_of PID: waits for its end, also when a signal interrupts the wait; the result is its status.
end_of() {
    local status seen
    while :; do
        seen=$stop_requests
        status=0
        wait "$1" || status=$?
        ((seen != stop_requests)) || return "$status"
    done
}

trap stop INT TERM HUP

if [[ $capture ]]; then
    mkdir -p "${picture%/*}"
    say "picture      $picture, for a browser"
    say "end          Ctrl-C, or the end of $capture"
    "$bin/va_picture" --read "$capture" "$picture" &
    children+=($!)
    "$bin/va_dump" --read "$capture" --pace 1 --events &
    children+=($!)
    end_of "${children[0]}" || true
    status=0
    end_of "${children[1]}" || status=$?
    exit "$status"
fi

"$bin/make_firmware"
[[ -f $store ]] || cp platform/sim/demo.conf "$store"
run_dir=$(cached "$preset" VA_RUN_DIR)
make_run_dir "$run_dir"
feed=$run_dir/feed
if [[ $source ]]; then
    scene=$root/build/$preset/demo/video.scene
    echo "feed $feed" >"$scene"
fi

say "settings     $store"
say "apply edits  $root/$bin/va_dump --reconfig"
say "results      sockets od, vmf, fd, ta in $run_dir"
[[ $run_dir == /tmp/va_info ]] || say "examples     export VA_RUN_DIR=$run_dir"
! "$draws" || say "picture      $picture, for a browser"
say "end          Ctrl-C"

"$bin/va_dump" "${printed[@]}" &
clients+=($!)
if "$draws"; then
    "$bin/va_picture" "${drawn[@]}" "$picture" &
    clients+=($!)
fi
children+=("${clients[@]}")
if "$verbose"; then
    exec {lines}>&1
else
    exec {lines}> >(pass_on)
    passing_on=$!
fi
NVRAM_FILE=$store VA_SIM_SCENE=$scene \
    "$bin/va" "${va_arguments[@]}" >&"$lines" 2>&1 {lines}>&- &
va=$!
children+=("$va")
exec {lines}>&-

eyes=
if [[ $source ]]; then
    # Kept, for the reason when it fails.
    "$bin/va_video" "${loop[@]}" --still "$still" "$source" "$feed" \
        2> >(trap '' INT TERM HUP && exec tee "$eyes_log" >&2) &
    eyes=$!
    children+=("$eyes")
fi
((stop_requests == 0)) || stop_children

# The first of these to end ends all, and its status counts.
first=
status=0
wait -n -p first "$va" ${eyes:+"$eyes"} || status=$?
stop_children
if [[ ${first-} != "$va" ]]; then
    va_status=0
    end_of "$va" || va_status=$?
    [[ ${first-} ]] || status=$va_status # a stop request ended the wait
fi
for client in "${clients[@]}" ${eyes:+"$eyes"}; do
    end_of "$client" || true
done
[[ -z $passing_on ]] || end_of "$passing_on" || true
# What `va` has printed meanwhile may be long.
[[ $status == 0 || -z $eyes || ${first-} != "$eyes" ]] || die "no video: $(tail --lines=1 "$eyes_log")"
# A stop request in its first moments finds `va` without its handler.
((stop_requests == 0 || status != 128 + sigterm)) || status=0
exit "$status"
