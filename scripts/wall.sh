#!/usr/bin/env bash
# usage: scripts/wall.sh [option...]
# Builds and runs cameras, each with a scene of its own or real video, on this machine alone: they publish
# what they see to a Mosquitto of this script's own, which also serves the page that shows them all.
# Ctrl-C ends everything.
#   -n CAMERAS  how many cameras, 1 to 99; default: as many as there are videos, at least 1
#   -p PORT     of the page, default 9080; the next one is the broker's
#   -m VIDEO    real video, by way of va_video, and a still behind its boxes each second, ahead of which
#               the boxes run: a file, which is repeated, a device such as /dev/video0, a URL (rtsp, http).
#               May be given several times: the first cameras see these, the others scenes
#   -d DIR      the cameras' and the broker's files, default build/PRESET/wall
#   -h, --help  this text
# VA_PRESET=asan, for instance, runs that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
cd "$OLDPWD" # which the paths among the arguments are relative to

cameras=
port=9080
folder=
videos=()
while getopts n:p:m:d: option; do
    case $option in
    n) cameras=$OPTARG ;;
    p) port=$OPTARG ;;
    d) folder=$(realpath --canonicalize-missing -- "$OPTARG") ;;
    m) videos+=("$(video_source "$OPTARG")") ;;
    *) usage_error ;;
    esac
done
shift $((OPTIND - 1))
: "${cameras:=$((${#videos[@]} > 1 ? ${#videos[@]} : 1))}"
[[ $# == 0 && $cameras =~ ^[1-9][0-9]?$ && $port =~ ^[1-9][0-9]{3,4}$ && $port -lt 65535 ]] ||
    usage_error
((${#videos[@]} <= cameras)) || die "there are more videos than cameras"
cd "$root"
broker_port=$((port + 1))
preset=${VA_PRESET:-host}
bin=$root/build/$preset/bin
: "${folder:=$root/build/$preset/wall}"
options=(-DVA_MQTT=ON)
targets=(va_here va_dump va_mqtt make_firmware)

require "${mqtt_packages[@]}" mosquitto
if ((${#videos[@]})); then
    require "${video_packages[@]}"
    options+=(-DVA_VIDEO=ON)
    targets+=(va_video)
fi
command -v npm >/dev/null || die "npm is needed for the page: install Node.js with npm"
configure "$preset" "${options[@]}"
build "$preset" "${targets[@]}"
page/stage.sh "$folder/page"

write_broker() {
    cat <<END
listener $broker_port 127.0.0.1
listener $port 127.0.0.1
protocol websockets
http_dir $folder/page
allow_anonymous true
persistence false
set_tcp_nodelay true
user $(id -un)
END
}

# write_store NUMBER: a line across and an area, each camera's elsewhere.
write_store() {
    local line=$((3500 + $1 * 700 % 3000)) left=$(($1 * 1300 % 6000 + 500))
    cat <<END
Properties.ImageSource.Sensor=imx122
EventDetection.VumeruOD=yes
EventDetection.FaceDetection=yes
EventDetection.CameraTampering=yes
CrossLine.C0.StartX=$line
CrossLine.C0.StartY=0
CrossLine.C0.EndX=$((line + 800))
CrossLine.C0.EndY=9999
ObjectDetection.O0.Left=$left
ObjectDetection.O0.Right=$((left + 2500))
ObjectDetection.O0.Top=5500
ObjectDetection.O0.Bottom=9500
ObjectDetection.O0.Type=1
VideoAnalytics.OD.SOParam.MinSizeX=2
VideoAnalytics.OD.SOParam.MinSizeY=2
END
}

# write_scene NUMBER: people and cars, as many and as fast as the camera's number has it.
write_scene() {
    local number from place=$((400 + $1 * 150 % 1200))
    echo "period $((8000 + $1 * 700))"
    echo "od_interval 100"
    for ((number = 1; number <= 2 + $1 % 4; ++number)); do
        from=$(((number + $1) % 2 * 1700 + 100))
        echo "object $number dynamic $((90 + number * 40))x$((220 - number * 25))" \
            "from $from,$((300 + (number * 310 + $1 * 130) % 650))" \
            "to $((1900 - from)),$((850 - (number * 290 + $1 * 170) % 500))" \
            "between $((number * 400)) $((5500 + number * 300))"
    done
    echo "object 19 static 90x80 from $place,620 to $place,620 between 4000 7500"
    echo "face 3 at $place,280 size 180x180 between 1500 3500"
    echo "at $((3000 + $1 * 500 % 3000)) ta 1 0 0 0"
}

children=()
essential=() # none of these may end
declare -A logs

# shellcheck disable=SC2317
stop() {
    trap - EXIT INT TERM HUP
    kill -TERM "${children[@]}" 2>/dev/null || true
    wait "${children[@]}" 2>/dev/null || true
}

# start NAME COMMAND...: in the working directory, with its number in NAME.pid and its output in
# NAME.log.
start() {
    local name=$1
    shift
    "$@" >"$name.log" 2>&1 &
    children+=("$!")
    logs[$!]=$PWD/$name.log
    echo "$!" >"$name.pid"
}

# start_video SOURCE: the eyes of a camera with the demonstration's settings.
start_video() {
    local loop=()
    [[ ! -f $1 ]] || loop=(--loop)
    cp "$root/platform/sim/demo.conf" store
    echo "feed feed" >scene
    stills=(--still run/still.jpg --still-interval 1)
    start va_video "$bin/va_video" "${loop[@]}" --still run/still.jpg "$1" feed
    essential+=("$!")
}

# start_camera NUMBER
start_camera() {
    local video=${videos[$1 - 1]-} stills=()
    mkdir -p "$folder/camera$1/run"
    cd "$folder/camera$1"
    if [[ $video ]]; then
        start_video "$video"
    else
        write_store "$1" >store
        write_scene "$1" >scene
    fi
    "$bin/make_firmware" firmware >/dev/null
    NVRAM_FILE=store VA_SIM_SCENE=scene start va "$bin/va_here"
    start va_mqtt "$bin/va_mqtt" --directory run --host 127.0.0.1 --port "$broker_port" \
        --prefix "cameras/camera$1" --rate 10 "${stills[@]}"
}

trap stop EXIT
trap 'exit 0' INT TERM HUP
cd "$folder"
write_broker >mosquitto.conf
start mosquitto mosquitto -c mosquitto.conf
essential+=("$!")
for ((number = 1; number <= cameras; ++number)); do
    start_camera "$number"
done
say "page    http://127.0.0.1:$port/"
say "broker  127.0.0.1:$broker_port, topics below cameras/"
say "files   ${folder#"$root/"}, made anew at each start"
say "edit    store of a camera there, then, in its folder, $bin/va_dump --directory run --reconfig"
say "end     Ctrl-C"
# Such as a broker at a port that another has, or eyes for which there is no video.
wait -n -p ended "${essential[@]}" || true
log=${logs[$ended]}
die "$(basename "$log" .log) has ended: $(tail --lines=1 "$log")"
