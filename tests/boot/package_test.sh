#!/bin/bash
# usage: package_test.sh BUILD SCENE
# The life of a build's Debian packages: installed, upgraded, watched, removed; first by the init
# script, then under systemd. Both run in namespaces, on a root that copies this machine's on write.
# For root, and a build with absolute paths for the product.
set -euo pipefail
[[ ${1-} != -h && ${1-} != --help ]] || exec sed -n '2,/^set/s/^# //p' "$0"
life=$(realpath "$0")

fail() {
    echo "package_test.sh: $*"
    if [[ -d /run/systemd/system ]]; then
        journalctl --no-pager --unit va --lines 40
    else
        tail --lines=40 /var/log/va.out
    fi
    exit 1
} >&2

# ends_with STATUS COMMAND...
ends_with() {
    local status=0
    "${@:2}" >/dev/null 2>&1 || status=$?
    ((status == $1))
}

expect() {
    ends_with "$@" || fail "not $1: ${*:2}"
}

wait_until() {
    local end=$((SECONDS + 20))
    until ends_with "$@"; do
        ((SECONDS < end)) || fail "not in time: $*"
        sleep 0.1
    done
}

process() {
    pgrep --exact va
}

is_another() {
    local now
    now=$(process) && [[ $now != "$1" ]]
}

install() {
    dpkg --no-triggers --install "$@" >>/dpkg.log 2>&1 || fail "$(tail /dpkg.log)"
}

remove() {
    dpkg --no-triggers --purge "$@" >>/dpkg.log 2>&1 || fail "$(tail /dpkg.log)"
    expect 1 process
    dpkg --contents /new.deb | while read -r mode _ _ _ _ file _; do
        [[ $mode == d* || ! -e /$file ]] || fail "not removed: $file"
    done
}

by_init_script() {
    local init=/usr/share/va/va.init old
    install /old.deb
    expect 3 $init status
    expect 0 $init start
    timeout 60 va_dump -n 1 od
    old=$(process)
    install /new.deb /picture.deb
    is_another "$old" || fail "not restarted"
    timeout 60 va_picture -n 1 picture.html
    grep --quiet '</html>' picture.html
    grep --quiet va/available picture.js
    expect 0 $init status
    kill -STOP "$(process)"
    expect 151 $init status
    expect 5 va_dump --status
    remove va va-picture
}

by_systemd() {
    local old
    mkdir /etc/systemd/system/va.service.d
    printf '%s\n' '[Service]' WatchdogSec=2 RestartSec=100ms >/etc/systemd/system/va.service.d/haste.conf
    install /old.deb
    expect 3 systemctl is-active va
    expect 0 systemctl enable --now va
    expect 0 va_dump --status
    expect 0 systemctl reload va
    wait_until 0 sh -c 'va_dump --status -j | grep "\"reloads\": *1"'
    old=$(process)
    install /new.deb
    is_another "$old" || fail "not restarted"
    expect 0 va_dump --status
    old=$(process)
    kill -STOP "$old"
    wait_until 0 va_dump --status
    is_another "$old" || fail "the watchdog did not bite"
    echo 'fail ne3_val_od_get_data 20 5' >/scene
    expect 0 systemctl restart va
    old=$(process)
    wait_until 6 va_dump --status
    wait_until 0 is_another "$old"
    echo VA_OPTIONS=--wrong >>/etc/default/va
    expect 1 systemctl restart va
    wait_until 0 journalctl --unit va --grep 'repeated too quickly'
    remove va
    expect 1 test -L /etc/systemd/system/multi-user.target.wants/va.service
    journalctl --no-pager --unit va --output cat --grep 'watchdog|^(Start|Stopp|Reload)ed|too quickly'
}

# The first process of the machine: becomes systemd, which ends with the status of the service.
start_machine() {
    local top=$1
    cd "$top/machine"
    mount -t tmpfs tmpfs .
    mkdir changes work root
    mount -t overlay overlay root -o lowerdir=/,upperdir=changes,workdir=work
    cd root
    for folder in run tmp sys; do
        mount -t tmpfs tmpfs $folder
    done
    mount -t proc proc proc
    mount --rbind /dev dev
    mkdir -p sys/fs/cgroup old mnt/ubifs_fw
    mount -t cgroup2 cgroup2 sys/fs/cgroup
    cp -r "$top"/{old.deb,new.deb,picture.deb,scene} .
    cp "$life" life.sh
    life=/life.sh
    cp -r "$top/firmware" mnt/ubifs_fw/vanafw
    echo Properties.ImageSource.Sensor=imx122 >etc/nvram.conf
    echo VA_SIM_SCENE=/scene >etc/default/va
    pivot_root . old
    cd /
    echo "by the init script:"
    by_init_script
    printf '%s\n' '[Service]' Type=oneshot 'ExecStart=/life.sh --systemd' \
        "StandardOutput=append:/old$top/log" StandardError=inherit \
        "ExecStopPost=/bin/systemctl exit \$EXIT_STATUS" >/etc/systemd/system/life.service
    exec env --ignore-environment container=test PATH="$PATH" \
        /lib/systemd/systemd --unit=life.service --show-status=no
}

pack() {
    (cd "$1" && cpack -D CPACK_PACKAGE_VERSION="$2" -B "$top/$2" >/dev/null 2>&1)
}

leave() {
    wait_until 0 grep 'populated 0' "$group/cgroup.events"
    find "$group" -depth -type d -exec rmdir {} +
    umount "$top/cgroup"
    rm -r "$top"
}

case $1 in
--systemd) by_systemd ;;
--machine) start_machine "$2" ;;
*)
    top=$(mktemp --directory) status=0
    mkdir "$top"/{machine,cgroup}
    mount -t cgroup2 cgroup2 "$top/cgroup"
    group=$top/cgroup/${top##*/}
    mkdir "$group"
    trap leave EXIT
    pack "$1" 0.9
    pack "$1" 1.0
    mv "$top"/0.9/va_*.deb "$top/old.deb"
    mv "$top"/1.0/va_*.deb "$top/new.deb"
    mv "$top"/1.0/va-picture_*.deb "$top/picture.deb"
    "$1/bin/make_firmware" "$top/firmware"
    cp "$2" "$top/scene"
    (
        echo $BASHPID >"$group/cgroup.procs"
        exec timeout --foreground --signal=KILL 300 unshare --mount --pid --fork --kill-child --cgroup --uts --ipc --net \
            "$life" --machine "$top"
    ) || status=$?
    echo "under systemd:"
    cat "$top/log" || true
    exit $status
    ;;
esac
