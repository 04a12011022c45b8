# shellcheck shell=sh
# While results flow, the clock is set: to 1970, to today, back by an hour, and right again. Nothing may
# be lost, nobody restarted; the longest pause is bounded by the loop's timer of 100 ms.
leave() {
    date -u -s "@$((today + ($(now) - start) / 100))" >/dev/null
}

start=$(now) today=$(date +%s)
[ "$today" -gt 1700000000 ] || today=1795000000
old=$(process)
uptime=$(value va.uptime)

va_dump -d "$VA_RUN_DIR" -W 40 -q od >"$work/figures" 2>&1 &
figures=$!
read_objects "$work/od"
# Longer than the watchdog's interval each.
for time in 60 "$today" "$((today - 3600))" "$today"; do
    date -u -s "@$time" >/dev/null || skip "the clock cannot be set"
    sleep 8
    age=$(value module.od.last_result)
    [ "${age%.*}" -lt 2 ] || fail "at $time the last result is $age s old"
    age=$(value analytics.last_pass)
    [ "${age%.*}" -lt 2 ] || fail "at $time the last pass is $age s old"
done
wait "$figures"
end_children
[ "$(process)" = "$old" ] || fail "process $old was restarted: $(process)"
more=$(($(value va.uptime) - uptime))
passed=$((($(now) - start) / 100))
off=$((more > passed ? more - passed : passed - more))
[ "$off" -le 5 ] || fail "uptime grew by $more s in $passed s"
for time in "$today" "$((today - 3600))"; do
    date -u -s "@$time" >/dev/null
    reloads=$(value settings.reloads)
    service reload
    wait_until 8 has_reloaded || fail "at $time the settings are not read again"
    is_well || fail "at $time it does not tell its status"
done
pause=$(sed -n 's/^od  *//p' "$work/figures" | tr -s ' ' | cut -d ' ' -f 4)
[ "$pause" ] || fail "no figures: $(cat "$work/figures")"
# The ninth word of the stand-in's objects counts results.
awk -v pause="$pause" -v counts="$VA_SCENE" '
    counts && NR > 1 && $12 != last + 1 { ++gaps }
    { last = $12 }
    END {
        printf "%d records, %d missing, longest pause %s s\n", NR, gaps, pause
        exit gaps > 0 || NR < 100 || pause > 1
    }' "$work/od"
