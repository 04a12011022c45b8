# shellcheck shell=sh
# Sourced by run.sh for each step: what they share. A step's last line is what it has seen.
: "${VA_RUN_DIR:=/tmp/va_info}" "${VA_SCENE=}" "${VA_QUIET_SECONDS:=600}"
init=/usr/share/va/va.init

# A folder for the step, and what ends with it.
work=$(mktemp -d) || exit
children=
leave() { # a step may have its own
    :
}
end_children() {
    # shellcheck disable=SC2086
    [ -z "$children" ] || kill $children 2>/dev/null
    children=
}
end() {
    end_children
    put_scene_back
    leave
    [ ! -e "$work/inittab" ] || put_into_inittab
    rm -r "$work"
}
trap end EXIT
trap 'exit 129' HUP INT TERM

# The newest lines of the daemon's log.
log() {
    if by_systemd; then
        journalctl --no-pager --unit va --lines 60
    else
        tail -n 60 "$(
            # shellcheck source=/dev/null
            [ ! -r /etc/default/va ] || . /etc/default/va
            echo "${VA_LOG:-/var/log/va.out}"
        )"
    fi
}

fail() {
    log | tail -n 15
    echo "$*"
    exit 1
}

skip() {
    echo "$*"
    exit "$not_tried" # run.sh's
}

by_systemd() {
    [ -d /run/systemd/system ]
}

# service ACTION
service() {
    if by_systemd; then
        systemctl "$1" va
    else
        "$init" "$1"
    fi
}

# Hundredths of a second since the kernel's start, by the clock that nobody sets.
now() {
    read -r seconds _ </proc/uptime
    echo "${seconds%.*}${seconds#*.}"
}

# seconds HUNDREDTHS: with one digit behind the point.
seconds() {
    echo "$(($1 / 100)).$(($1 / 10 % 10))"
}

# wait_until SECONDS COMMAND...
wait_until() {
    end=$(($(now) + $1 * 100))
    shift
    until "$@"; do
        [ "$(now)" -lt "$end" ] || return 1
        sleep 1
    done
}

# value KEY: of the daemon's status, asked now.
value() {
    va_dump -d "$VA_RUN_DIR" --status >/dev/null 2>&1
    sed -n "s/^$1: //p" "$VA_RUN_DIR/status" 2>/dev/null
}

is_well() {
    va_dump -d "$VA_RUN_DIR" --status >/dev/null 2>&1
}

# Whether the settings have been read more often than `reloads` says.
has_reloaded() {
    [ "$(value settings.reloads)" -gt "$reloads" ]
}

process() {
    cat "$VA_RUN_DIR/pid" 2>/dev/null
}

# is_another PROCESS: whether the daemon is well, and not that one.
is_another() {
    is_well && [ "$(process)" != "$1" ]
}

# read_objects [FILE]: a client that stays, in the background.
read_objects() {
    va_dump -d "$VA_RUN_DIR" od >"${1:-/dev/null}" 2>"$work/messages" &
    children="$children $!"
    wait_until 20 has_clients va_dump || fail "no client: $(cat "$work/messages")"
}

# play LINE: starts the daemon with the stand-in's scene and this line more.
play() {
    cp "$VA_SCENE" "$work/scene"
    echo "$1" >>"$VA_SCENE"
    service restart || fail "does not start with $1"
    old=$(process)
    put_scene_back
}

put_scene_back() {
    [ ! -e "$work/scene" ] || cat "$work/scene" >"$VA_SCENE"
}

# has_clients NAME...: whether processes of these names are connected.
has_clients() {
    value 'stream\.od\.client\.[0-9]*\.process' >"$work/clients"
    names=$(while read -r client; do cat "/proc/$client/comm"; done <"$work/clients" 2>/dev/null)
    for name; do
        echo "$names" | grep -q "^$name$" || return 1
    done
}

# BusyBox's init and its line `va.init run`.

is_supervised() {
    cat /proc/[0-9]*/cmdline 2>/dev/null | tr '\0' ' ' | grep -q 'va.init [r]un'
}

is_unsupervised() {
    ! is_supervised
}

# take_out_of_inittab: without the line, the daemon is down.
take_out_of_inittab() {
    sed 's/^[^#]*va.init run/#&/' /etc/inittab >"$work/inittab"
    mount -o bind "$work/inittab" /etc/inittab || skip "no other /etc/inittab can be mounted"
    kill -HUP 1
    service stop || fail "stop: $?"
    wait_until 40 is_unsupervised || fail "init still supervises it without the line"
}

put_into_inittab() {
    umount /etc/inittab
    rm "$work/inittab"
    kill -HUP 1
}
