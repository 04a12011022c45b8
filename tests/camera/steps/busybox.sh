# shellcheck shell=sh
# By the init script, and BusyBox's init that supervises it: the inittab has the line `va.init run`.
! by_systemd || skip "the supervisor is systemd"
# shellcheck source=/dev/null
[ ! -r /etc/default/va ] || . /etc/default/va
log=${VA_LOG:-/var/log/va.out} most=${VA_LOG_LINES:-2000}

# ends_with STATUS ACTION
ends_with() {
    status=0
    said=$("$init" "$2" 2>&1) || status=$?
    [ "$status" -eq "$1" ] || fail "$2 ends with $status: $said"
}

# replaced WHAT: waits until another daemon runs than `old`.
replaced() {
    start=$(now)
    wait_until 90 is_another "$old" || fail "not back after $1"
    seen="$seen, $1 $(seconds $(($(now) - start))) s"
}

# killed SIGNAL
killed() {
    old=$(process)
    kill "-$1" "$old"
    replaced "SIG$1"
}

wait_until 60 is_well || fail "the inittab line did not start it"
ends_with 0 status
score=$(cat "/proc/$(process)/oom_score_adj")
[ "$score" -eq -500 ] || fail "the kernel kills it at $score"

# Without the line it stays down.
take_out_of_inittab
ends_with 3 status

# What a power cut leaves, in a run directory on the flash; the number is another program's by now.
printf 1 >"$VA_RUN_DIR/pid"
chown "${VA_USER:-va}" "$VA_RUN_DIR/pid"
ends_with 0 start
old=$(process)
put_into_inittab
wait_until 20 is_supervised || fail "init does not supervise it again"
sleep 5
[ "$(process)" = "$old" ] || fail "the inittab line does not take over what runs"
seen=
killed KILL
killed STOP
if [ -w "$VA_SCENE" ]; then
    play "hang ne3_val_od_get_data 20 100000" # which does not end by SIGTERM
    replaced "a hanging read"
fi
ends_with 0 reload
old=$(process)
ends_with 0 restart
wait_until 20 is_another "$old" || fail "no other after a restart"

# A line for each connection, and one for its end. `run` itself may add one that the log does not count.
rm -f "$log.1"
tries=0
while [ ! -e "$log.1" ] && [ "$tries" -lt "$most" ]; do
    va_dump -d "$VA_RUN_DIR" -n 1 -W 5 od >/dev/null
    tries=$((tries + 1))
done
for file in "$log" "$log.1"; do
    lines=$(wc -l <"$file") || fail "no $file after $tries connections"
    [ "$lines" -le "$((most + 1))" ] || fail "$lines lines in $file"
done
echo "stays down without the line; a stale PID file is removed; back after ${seen#, }; reload, restart; two logs of $most lines"
