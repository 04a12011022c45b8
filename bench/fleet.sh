#!/usr/bin/env bash
# usage: bench/fleet.sh [-t] [-r RATE] [-e CROSSING] [-s SECONDS] [-w WINDOW] [CAMERAS...]
# Simulated cameras on one Mosquitto of this script's own (default: 1 10 100 1000 of them), each with
# RATE frames of eight objects a second (default 5) for so many SECONDS (default 20) and a crossed line
# every CROSSING seconds (default 10, at least 2: an alarm that lasts is one crossing); one subscriber to
# all of it, to which WINDOW events may be under way (default: what the broker sets, 20). Before that the
# broker is killed and started again. With -t all speak TLS. Prints a row for each.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/setup.sh"

rate=5 crossing=10 length=20 window=0 cafile=
while getopts e:r:s:tw: option; do
    case $option in
    e) crossing=$OPTARG ;;
    r) rate=$OPTARG ;;
    s) length=$OPTARG ;;
    t) cafile=broker.crt ;;
    w) window=$OPTARG ;;
    *) usage_error ;;
    esac
done
shift $((OPTIND - 1))
(($#)) || set -- 1 10 100 1000

require "${mqtt_packages[@]}" mosquitto
configure bench -DVA_MQTT=ON >/dev/null
build bench fleet_bench >/dev/null
bench=$root/build/bench/bench/fleet_bench
port=${FLEET_PORT:-18893}
most=250 # cameras of a process
folder=$(mktemp --directory)
cd "$folder"
children=()

# shellcheck disable=SC2317
leave() {
    ((${#children[@]} == 0)) || kill -KILL "${children[@]}" 2>/dev/null || true
    rm -r "$folder"
}
trap leave EXIT

cat >store <<END_OF_STORE
Properties.ImageSource.Sensor=imx122
CrossLine.C0.StartX=5000
CrossLine.C0.StartY=0
CrossLine.C0.EndX=5000
CrossLine.C0.EndY=9999
END_OF_STORE
export NVRAM_FILE=$folder/store
cat >mosquitto.conf <<END_OF_BROKER
listener $port 127.0.0.1
allow_anonymous true
user $(id -un)
max_queued_messages 0
set_tcp_nodelay true
END_OF_BROKER
if [[ $cafile ]]; then
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=broker \
        -addext subjectAltName=IP:127.0.0.1 -keyout broker.key -out broker.crt 2>/dev/null
    printf '%s\n' "certfile broker.crt" "keyfile broker.key" >>mosquitto.conf
fi

# cpu_ticks PID
cpu_ticks() {
    local fields
    read -ra fields <"/proc/$1/stat"
    echo $((fields[13] + fields[14]))
}

wait_for() {
    local tries
    for ((tries = 0; tries < 600; ++tries)); do
        ! grep --quiet "$1" "$2" 2>/dev/null || return 0
        sleep 0.1
    done
    die "no $1 in $2: $(tail "$2")"
}

# What publishers wait for, the end of `go`, is to be had from this script alone.
run_in_background() {
    (
        [[ ! $go ]] || exec {go}>&-
        exec "$@"
    ) &
}

start_broker() {
    run_in_background mosquitto -c mosquitto.conf >broker.log 2>&1
    broker=$!
    children+=("$broker")
    wait_for running broker.log
}

# start_subscriber CAMERAS
start_subscriber() {
    run_in_background "$bench" subscribe "$port" "$cafile" "$1" "$window" >read.log
    subscriber=$!
    children+=("$subscriber")
}

# run CAMERAS
run() {
    local broker subscriber publishers=() first ticks sent crossed cpu back back_ticks
    local all_sent=0 all_crossed=0 all_cpu=0
    local go=
    start_broker
    start_subscriber "$1"
    mkfifo go
    for ((first = 1; first <= $1; first += most)); do
        "$bench" publish "$port" "$cafile" "$first" $(($1 - first + 1 < most ? $1 - first + 1 : most)) \
            "$rate" "$crossing" "$length" <go >"sent.$first" 2>"said.$first" &
        publishers+=("$!")
    done
    children+=("${publishers[@]}")
    exec {go}>go
    wait_for here read.log
    kill "$subscriber"
    wait "$subscriber"
    kill -KILL "$broker"
    wait "$broker" 2>/dev/null || true
    start_broker
    back=$EPOCHREALTIME
    start_subscriber "$1"
    wait_for here read.log
    back=$(echo "$EPOCHREALTIME - $back" | bc)
    back_ticks=$(cpu_ticks "$broker")
    ticks=$back_ticks
    exec {go}>&- # its end is the line they wait for
    wait "${publishers[@]}"
    ticks=$(($(cpu_ticks "$broker") - ticks))
    sleep 1 # what the broker still has for its reader
    kill -TERM "$subscriber"
    wait "$subscriber"
    while read -r sent crossed cpu; do
        all_sent=$((all_sent + sent)) all_crossed=$((all_crossed + crossed))
        all_cpu=$(echo "$all_cpu + $cpu" | bc)
    done < <(cat sent.*)
    tail -1 read.log | {
        read -r frames p50 p99 max crossings event_p50 event_p99 event_max
        printf '%7d %9.0f %8d %5d %7d %5d %6.1f %7.1f %7.1f %7.1f %7.1f %7.1f %6.1f %6.1f %7.3f %6.1f %5.2f\n' \
            "$1" "$(echo "($frames + 2 * $crossings) / $length" | bc)" "$all_sent" \
            $((all_sent - frames)) "$all_crossed" $((all_crossed - crossings)) \
            "$p50" "$p99" "$max" "$event_p50" "$event_p99" "$event_max" \
            "$(echo "scale=2; $ticks * 100 / $(getconf CLK_TCK) / $length" | bc)" \
            "$(sed -n 's/^VmHWM:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$broker/status" |
                sed 's|$|/1024|;1s|^|scale=1;|' | bc)" \
            "$(echo "scale=3; $all_cpu * 100 / $length / $1" | bc)" "$back" \
            "$(echo "scale=2; $back_ticks / $(getconf CLK_TCK)" | bc)"
    }
    kill "$broker"
    wait "$broker" || true
    children=()
    rm -f go ./*.log sent.* said.* # of which the next run waits for its own
}

echo "                        frames     crossings     frames to reader, ms    events to reader, ms      broker     publisher back after"
echo "cameras messages/s    sent  lost    sent  lost    p50     p99     max     p50     p99     max  CPU %    MiB   CPU % s      CPU s"
for cameras; do
    run "$cameras"
done
