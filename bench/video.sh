#!/usr/bin/env bash
# usage: bench/video.sh [ROUNDS]
# What a look costs, in milliseconds of the processor, all threads: va_video without faces, and
# bench/plain_tracker.py, by turns (default: 5 rounds). Of the pairs of each size the median, and that
# of their ratios. VA_PRESET=bench, for instance, takes that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/setup.sh"

rounds=${1:-5}
[[ $rounds =~ ^[1-9][0-9]*$ ]] || usage_error
preset=${VA_PRESET:-host}
require "${video_packages[@]}" python3-opencv bc
configure "$preset" -DVA_VIDEO=ON >/dev/null
build "$preset" va_video >/dev/null
folder=$(mktemp --directory)
trap 'rm -r "$folder"' EXIT
cd "$folder"

# seconds CLIP: of the processor, that va_video takes.
seconds() {
    local TIMEFORMAT='%U + %S'
    { time "$root/build/$preset/bin/va_video" --fast --no-faces "$1" - >/dev/null 2>&1; } 2>&1 | bc
}

# The difference of two clips: a start is no look.
of_va_video() {
    echo "scale=2; ($(seconds long.avi) - $(seconds short.avi)) * 1000 / 250" | bc
}

median() {
    sort --numeric-sort | sed --quiet "$((rounds / 2 + 1))p"
}

for size in 320x240 640x360 1920x1080; do
    for seconds in 2:short 12:long; do
        "$root/tests/video/make_clip.py" "${seconds#*:}.avi" seconds="${seconds%:*}" walkers=6 \
            standing=1 width="${size%x*}" height="${size#*x}" >/dev/null
    done
    for ((i = 0; i < rounds; ++i)); do
        ours=$(of_va_video)
        plain=$("$root/bench/plain_tracker.py" long.avi 2>&1 >/dev/null)
        echo "$ours $plain $(echo "scale=2; $ours / $plain" | bc)"
    done >pairs
    printf '%9s: va_video %5.2f ms, plain %5.2f ms, ratio %4.2f\n' "$size" \
        "$(cut --delimiter=' ' --fields=1 pairs | median)" \
        "$(cut --delimiter=' ' --fields=2 pairs | median)" \
        "$(cut --delimiter=' ' --fields=3 pairs | median)"
done
