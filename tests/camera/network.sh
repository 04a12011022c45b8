#!/bin/bash
# usage: network.sh [SECONDS-WITHOUT]
# A broker here, va_mqtt on an emulated camera, and the cable pulled for two minutes: what happened
# meanwhile arrives. In the folder of the image, and in a network namespace of its own.
set -euo pipefail
here=$(dirname "$(realpath "$0")")
[[ ${VA_OWN_NETWORK-} ]] || VA_OWN_NETWORK=yes exec unshare --net "$0" "$@"
# shellcheck source=tests/camera/emulator.sh
source "$here/emulator.sh"
without=${1:-120}
log=network.log
network=(-netdev "user,id=net" -device "virtio-net-device,netdev=net" -monitor "unix:monitor,server,nowait")

leave() {
    # shellcheck disable=SC2046
    kill $(jobs -p) 2>/dev/null || true
}

fail() {
    row network FAILED "$*; $(tail -n 5 $log)"
    exit 1
}

# When somebody crossed, as it arrived: what was on its way when the connection broke may come twice.
crossings() {
    sed --quiet 's|.*LineDetector/Crossed.*"UtcTime":"\([^"]*\)Z".*|\1|p' messages
}

has_more_than() {
    (($(crossings | wc --lines) > $1))
}

has_row() {
    rows <$log | grep --quiet '^network '
}

# cable on|off
cable() {
    echo "set_link net $1" | socat - UNIX-CONNECT:monitor >/dev/null
}

trap leave EXIT
ip link set lo up
rm -f monitor messages
printf '%s\n' 'listener 1883 127.0.0.1' 'allow_anonymous true' >mosquitto.conf
mosquitto -c mosquitto.conf >broker.log 2>&1 &
new_data network.data
wait_until 10 mosquitto_pub -t ready -m '' 2>/dev/null || fail "no broker"
mosquitto_sub -t 'camera/#' -v >messages &
emulated network.data camera.steps=network
"${camera[@]}" </dev/null >$log 2>&1 &
wait_until 150 has_more_than 0 || fail "nothing arrives"
cable off
sleep "$without"
before=$(crossings | wc --lines)
cable on
start=$SECONDS
wait_until 60 has_more_than "$before" || fail "nothing arrives after the cable is back"
back=$((SECONDS - start))
wait_until 150 has_row || fail "the camera's step does not end"
read -r seen first last <<<"$(rows <$log |
    sed --quiet 's/^network *passed *\([0-9]*\) crossings from \(.*\)+.* to \(.*\)+.*/\1 \2 \3/p')"
[[ $last ]] || fail "$(rows <$log)"
all=$(crossings | wc --lines)
crossings | awk '!seen[$0]++' >crossed
sort --check --unique crossed || fail "out of order"
# The camera's own client receives a record, and so reports an event, moments before or after.
arrived=$(date --utc --file=crossed +%s | awk -v first="$(date --utc --date="$first" +%s)" \
    -v last="$(date --utc --date="$last" +%s)" '$1 > first - 3 && $1 < last + 3' | wc --lines)
((seen >= (without + 60) / 5)) || fail "only $seen crossings on the camera"
((arrived == seen)) || fail "$seen crossings on the camera, $arrived of them arrived"
twice=$((all - $(wc --lines <crossed)))
row network passed "$seen crossings, $without s without cable; all arrived, in order, $twice twice; back after $back s"
