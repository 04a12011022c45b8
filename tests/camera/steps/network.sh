# shellcheck shell=sh
# The camera's side of a cable that is pulled: counts who crosses, and goes on for a minute after it is
# back.
carrier=/sys/class/net/eth0/carrier

carrier_is() {
    [ "$(cat $carrier)" = "$1" ]
}

wait_until 20 is_well || fail "not well"
wait_until 60 has_clients va_mqtt || fail "va_mqtt does not run"
va_dump -d "$VA_RUN_DIR" -e -j line=0 od vmf >"$work/events" 2>/dev/null &
client=$!
children=$client
wait_until 20 has_clients va_dump || fail "no client"
busybox ip link set eth0 up
busybox ip address add 10.0.2.15/24 dev eth0
wait_until 200 carrier_is 0 || fail "the cable is never pulled"
wait_until 200 carrier_is 1 || fail "the cable stays pulled"
sleep 60
kill "$client"
wait "$client"
children=
sleep 10
sed -n 's/.*"time":"\([^"]*\)".*"line_crossed".*/\1/p' "$work/events" >"$work/times"
echo "$(wc -l <"$work/times") crossings from $(head -n 1 "$work/times") to $(tail -n 1 "$work/times")"
