# shellcheck shell=sh
# A program takes much memory, and the kernel chooses three times whom to kill. SysRq asks it to: when
# memory really ends, it may stand still for minutes before. The daemon is spared, although it is among
# the largest by then, and serves its clients.
trigger=/proc/sysrq-trigger
[ -w $trigger ] || skip "the kernel cannot be asked to kill"
old=$(process)
score=$(cat "/proc/$old/oom_score_adj")
read_objects

# The names of what the kernel has killed.
killed() {
    dmesg | sed -n 's/.*Killed process [0-9]* (\([^)]*\)).*/\1/p' | tr '\n' ' '
}

has_killed_more_than() {
    [ "$(killed | wc -w)" -gt "$1" ]
}

free=$(sed -n 's/^MemAvailable: *\([0-9]*\) .*/\1/p' /proc/meminfo)
# Its score is that of any program, not of who runs the steps.
sh -c 'echo 0 >/proc/self/oom_score_adj; exec dd if=/dev/zero of=/dev/null bs='"$((free / 3))k" >/dev/null 2>&1 &
children="$children $!"
sleep 3
before=$(killed | wc -w)
for number in 0 1 2; do
    echo f >$trigger
    wait_until 20 has_killed_more_than $((before + number)) || fail "the kernel has killed $(killed)"
    sleep 1
done
wait_until 60 is_well || fail "killed: $(killed); the daemon is not back"
wait_until 60 has_clients va_dump || fail "killed: $(killed); no client is back"
va_dump -d "$VA_RUN_DIR" -n 1 -W 20 od >/dev/null 2>&1 || fail "killed: $(killed); no record"
case " $(killed)" in
*" va "*) fail "killed: $(killed), with oom_score_adj $score" ;;
esac
stays="the daemon stays"
[ "$(process)" = "$old" ] || stays="the supervisor has restarted the daemon" # which got no processor time
echo "killed: $(killed); $stays, oom_score_adj $score"
