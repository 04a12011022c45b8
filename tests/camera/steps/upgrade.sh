# shellcheck shell=sh
# The packages are replaced under load, and back, and removed. BusyBox's shell has a dpkg of its own.
[ "${VA_OLD:+${VA_NEW-}}" ] || skip "VA_OLD and VA_NEW name no packages"
wait_until 20 is_well || fail "not well before"
mount -o remount,rw / || skip "the root file system is read-only"

# With the line a removed daemon would come back.
by_systemd || { take_out_of_inittab && service start >/dev/null; }
read_objects
seen=

# install PACKAGE: sets `seen`; the running daemon is replaced, and the client returns.
install() {
    old=$(process)
    by_systemd || kill -STOP "$old" # does not answer
    /usr/bin/dpkg --install "$1" >"$work/dpkg" 2>&1 || fail "$1: $(cat "$work/dpkg")"
    wait_until 20 is_another "$old" || fail "$1: not restarted"
    case $(readlink "/proc/$(process)/exe") in
    *deleted*) fail "$1: the old program runs" ;;
    esac
    wait_until 20 has_clients va_dump || fail "$1: the client is not back"
    seen="$seen $(/usr/bin/dpkg-query --show --showformat '${Version}' va)"
}

mode=$(stat -c %U:%a /var/lib/va_mqtt)
[ "$mode" = va_mqtt:700 ] || fail "/var/lib/va_mqtt has owner and mode $mode"
/usr/bin/dpkg-query --show --showformat '${Conffiles}' va-mqtt | grep -q /etc/va_mqtt.conf ||
    fail "an upgrade overwrites the settings of va_mqtt"
install "$VA_NEW"
install "$VA_OLD"
/usr/bin/dpkg --purge va-mqtt va >"$work/dpkg" 2>&1 || fail "$(cat "$work/dpkg")"
[ -z "$(process)" ] || fail "process $(process) survives the removal"
# On this file system, but for what the image has put there.
left=$(find / -xdev \( -name va -o -name 'va[._-]*' \) ! -path '/etc/default/*' ! -path '/usr/share/camera/*')
[ -z "$left" ] || fail "left: $left"
/usr/bin/dpkg --install "$VA_OLD" >"$work/dpkg" 2>&1 || fail "again: $(cat "$work/dpkg")"
[ -z "$(process)" ] || fail "runs after a first installation"
if by_systemd; then
    # As the documents have it for so small a /run.
    systemctl enable --no-reload va >/dev/null 2>&1 || fail "cannot be enabled: $?"
    systemctl start va || fail "cannot be started: $?"
    wait_until 20 is_well || fail "not well after a first installation"
    systemctl stop va
    rm -r "$VA_RUN_DIR"
    systemctl start va || fail "does not start without the run directory"
    wait_until 20 is_well || fail "not well without the run directory"
    systemctl stop va
    # Without settings it may fail, but for a reason of its own.
    mv /etc/default/va "$work"
    systemctl start va 2>/dev/null || [ "$(systemctl show --property Result --value va)" != resources ] ||
        fail "not started without /etc/default/va"
    mv "$work/va" /etc/default
fi
echo "versions$seen; the removal leaves no file"
