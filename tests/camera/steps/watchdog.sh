# shellcheck shell=sh
# A daemon that is stopped, blind or hangs is restarted by the system's supervisor, and its clients
# return by themselves.
by_systemd || skip "no supervisor with a watchdog"
clients=va_dump
! systemctl is-enabled --quiet va_mqtt 2>/dev/null || clients="va_dump va_mqtt"
read_objects
seen=

# restarted WHAT: waits until the daemon that is `old` has been replaced, with clients.
restarted() {
    start=$(now)
    wait_until 60 is_another "$old" || fail "$1: not restarted within a minute"
    # shellcheck disable=SC2086
    wait_until 40 has_clients $clients || fail "$1: clients are not back: $names"
    seen="$seen${seen:+, }$1 $(seconds $(($(now) - start))) s"
}

leave() {
    kill -CONT "$old" 2>/dev/null
}

wait_until 20 is_well || fail "not well before"
old=$(process)
kill -TERM "$old"
restarted ended
old=$(process)
kill -STOP "$old"
restarted stopped
# It was asked to, not killed.
journalctl --no-pager _PID="$old" | grep -q "Application quit" || fail "a stopped daemon does not end in good order"
if [ -w "$VA_SCENE" ]; then
    play "fail ne3_val_od_get_data 20 5"
    restarted "failing read"
    play "hang ne3_val_od_get_data 20 100000"
    restarted "hanging read"
fi
echo "back with $clients: $seen"
