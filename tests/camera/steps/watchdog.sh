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
if [ "$clients" != va_dump ]; then
    kill -KILL "$(pidof va_mqtt)"
    # shellcheck disable=SC2086
    wait_until 60 has_clients $clients || fail "killed, va_mqtt does not come back"
fi
if [ -w "$VA_SCENE" ]; then
    play "fail ne3_val_od_get_data 20 5"
    restarted "failing read"
    play "hang ne3_val_od_get_data 20 100000"
    restarted "hanging read"
    # Each start takes a second to fail: not so often in a row that the supervisor gives up.
    firmware=/mnt/ubifs_fw/vanafw
    mount -o bind "$work" $firmware
    systemctl restart va 2>/dev/null
    sleep 20
    umount $firmware
    wait_until 20 is_well || fail "the supervisor has given up: $(systemctl show --property Result va)"
    seen="$seen, without firmware for 20 s"
fi
echo "back with $clients: $seen"
