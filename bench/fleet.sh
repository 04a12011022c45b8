#!/usr/bin/env bash
# usage: bench/fleet.sh [-r RATE] [-s SECONDS] [CAMERAS...]
# Simulated cameras on one Mosquitto of this script's own (default: 1 10 100 1000 of them), each with
# RATE frames of eight objects a second (default 5) for so many SECONDS (default 20) and a crossed line
# every ten seconds; one subscriber to all of it. Prints a row for each.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/setup.sh"

rate=5 length=20
while getopts r:s: option; do
    case $option in
    r) rate=$OPTARG ;;
    s) length=$OPTARG ;;
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

# run CAMERAS
run() {
    local broker subscriber publishers=() first ticks sent crossed cpu
    local all_sent=0 all_crossed=0 all_cpu=0
    mosquitto -c mosquitto.conf >broker.log 2>&1 &
    broker=$!
    children=("$broker")
    wait_for running broker.log
    "$bench" subscribe "$port" "$1" >read.log &
    subscriber=$!
    children+=("$subscriber")
    mkfifo go
    for ((first = 1; first <= $1; first += most)); do
        "$bench" publish "$port" "$first" $(($1 - first + 1 < most ? $1 - first + 1 : most)) \
            "$rate" "$length" <go >"sent.$first" 2>"said.$first" &
        publishers+=("$!")
    done
    children+=("${publishers[@]}")
    exec {go}>go
    wait_for here read.log
    ticks=$(cpu_ticks "$broker")
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
        read -r frames crossings p50 p99 max
        printf '%7d %9.0f %10d %6d %6d %6d %7.2f %7.2f %7.1f %8.1f %7.1f %9.3f\n' "$1" \
            "$(echo "($frames + $crossings) / $length" | bc)" "$all_sent" $((all_sent - frames)) \
            "$all_crossed" $((all_crossed - crossings)) "$p50" "$p99" "$max" \
            "$(echo "scale=2; $ticks * 100 / $(getconf CLK_TCK) / $length" | bc)" \
            "$(sed -n 's/^VmHWM:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$broker/status" |
                sed 's|$|/1024|;1s|^|scale=1;|' | bc)" \
            "$(echo "scale=3; $all_cpu * 100 / $length / $1" | bc)"
    }
    kill "$broker"
    wait "$broker" || true
    children=()
    rm -f go ./*.log sent.* said.* # of which the next run waits for its own
}

echo "                          frames          crossings   to subscriber, ms      broker        publisher"
echo "cameras  messages/s       sent   lost   sent   lost     p50     p99     max   CPU %  MiB   CPU % each"
for cameras; do
    run "$cameras"
done
