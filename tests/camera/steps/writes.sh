# shellcheck shell=sh
# Results with clients, and not a byte for the flash. What grows in memory shows too.

# Bytes: what block devices count, in sectors, and for raw flash what the daemon itself has written.
written() {
    cat /sys/block/*/stat 2>/dev/null | awk '{ sum += $7 } END { print 512 * sum }'
    sed -n 's/^write_bytes: //p' "/proc/$(process)/io"
}

used() {
    df -k /tmp /run /var/log 2>/dev/null | awk 'NR > 1 { sum += $3 } END { print sum + 0 }'
}

[ -e "/proc/$(process)/io" ] || skip "the kernel does not count what the daemon writes"
# On the emulated camera it could be written to.
[ ! "$VA_SCENE" ] || mount -o remount,rw,noatime /
leave() {
    [ ! "$VA_SCENE" ] || mount -o remount,ro /
}
va_dump -d "$VA_RUN_DIR" >/dev/null 2>&1 &
children=$!
wait_until 20 has_clients va_dump || fail "no client"
records=$(value stream.od.records)
sync
before=$(written) used=$(used)
sleep "$VA_QUIET_SECONDS"
sync
after=$(written)
records=$(($(value stream.od.records) - records))
[ "$records" -gt 0 ] || fail "no results"
[ "$after" = "$before" ] || fail "bytes by all, and by the daemon: $before before, $after after"
echo "nothing in $VA_QUIET_SECONDS s with $records results, $(($(used) - used)) kB more in memory file systems"
