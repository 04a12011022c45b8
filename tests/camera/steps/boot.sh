# shellcheck shell=sh
# The system has started the daemon, its first record is there, and it reads its settings again.
va_dump -d "$VA_RUN_DIR" -n 1 -W 60 od >"$work/od" || fail "no record within a minute, va_dump: $?"
seen="a record $(seconds "$(now)") s after the kernel"
if by_systemd; then
    unit() {
        systemctl show --property "$1" --value va
    }
    says() {
        [ "$(unit StatusText)" = "$1" ]
    }
    [ "$(unit ActiveState)" = active ] || fail "the unit is $(unit ActiveState)"
    # Of this type a unit is active when READY=1 was seen.
    [ "$(unit Type)" = notify ] || fail "the unit does not wait for READY"
    wait_until 10 says "Analytics run." || fail "its status is $(unit StatusText)"
    started=$(unit ExecMainStartTimestampMonotonic)
    ready=$(unit ActiveEnterTimestampMonotonic)
    exposure=$(systemd-analyze security --no-pager va 2>/dev/null |
        sed -n 's/.*level for va.service: \([0-9.]*\).*/\1/p')
    case $exposure in
    [01].* | 2.0) ;;
    *) fail "exposure ${exposure:-unknown}, more than 2.0" ;;
    esac
    seen="$seen, READY $(seconds $(((ready - started) / 10000))) s after its start, exposure $exposure"
    seen="$seen, unit $(($(unit MemoryCurrent) / 1024)) kB"
fi
mode=$(stat -c %a "$VA_RUN_DIR")
[ "$mode" = 2750 ] || fail "$VA_RUN_DIR has the mode $mode"
reloads=$(value settings.reloads)
service reload || fail "reload ends with $?"
wait_until 10 has_reloaded || fail "does not read its settings again"
resident=$(sed -n 's/^VmRSS:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$(process)/status")
[ "$resident" -lt 6000 ] || fail "resident $resident kB"
echo "$seen, resident $resident kB"
