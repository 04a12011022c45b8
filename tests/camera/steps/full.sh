# shellcheck shell=sh
# The file systems of the run directory and of /run are full: starting, reloading and asking each give a
# clear sign, results go on, and all is well when there is room again, without another start.
full="${VA_RUN_DIR%/*} /run"
for folder in $full; do
    grep -q "^[^ ]* $folder tmpfs" /proc/mounts || skip "$folder is no memory file system"
    [ "$(df -k "$folder" | awk 'NR > 1 { print $4 }')" -lt 32768 ] || skip "$folder is large"
done

fill() {
    for folder in $full; do
        filler=$(mktemp "$folder/filler.XXXXXX")
        fillers="$fillers $filler"
        cat /dev/zero >"$filler" 2>/dev/null
    done
}

fillers=
leave() {
    # shellcheck disable=SC2086
    rm -f $fillers
}

# says STATUS TEXT COMMAND...: whether the command ends so and prints that.
says() {
    expected=$1 text=$2 status=0
    shift 2
    said=$("$@" 2>&1) || status=$?
    [ "$status" -eq "$expected" ] || fail "full, $* ends with $status: $said"
    case $said in
    *"$text"*) ;;
    *) fail "full, $* says $said" ;;
    esac
}

has_results() {
    va_dump -d "$VA_RUN_DIR" -n 5 -W 20 od >/dev/null 2>&1
}

has_logged() {
    log | grep -q "$1"
}

has_pid_file() {
    [ "$(value va.process)" ] && [ "$(process)" = "$(value va.process)" ]
}

wait_until 20 is_well || fail "not well before"
fill
says 7 "cannot write its status" va_dump -d "$VA_RUN_DIR" --status
says 7 "cannot write its status" va_dump -d "$VA_RUN_DIR" --reconfig
has_results || fail "full, no results"
has_logged "Can't write $VA_RUN_DIR/status" || fail "full, the log does not say so"
service stop >/dev/null
fill # what it has left
# Else init starts it, time after time if need be.
! by_systemd && is_supervised || service start >/dev/null || fail "full, a start ends with $?"
wait_until 60 has_results || fail "full, no results after a start"
wait_until 30 has_logged "there is no PID file" || fail "full, the log does not say that there is no PID file"
[ "$(pidof va | wc -w)" -eq 1 ] || fail "full, several daemons run: $(pidof va)"
leave
wait_until 60 has_pid_file || fail "with room again: $(va_dump -d "$VA_RUN_DIR" --status), PID file $(process)"
has_results || fail "no results with room again"
echo "status, reload, log and start tell, results go on; well when there is room"
