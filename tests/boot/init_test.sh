#!/bin/bash
# usage: init_test.sh SHELL INIT-SCRIPT MAKE-FIRMWARE DAEMON [EMULATOR...]
# The init script under a shell, with a daemon whose paths are relative, in a folder of its own.
set -euo pipefail
read -r -a init <<<"$1"
init+=("$2")
make_firmware=$3 command=("${@:5}" "$4")

VA_USER=$(id -un) VA_GROUP=$(id -gn) VA_DAEMON=${command[0]} VA_OPTIONS="${command[*]:1} -t"
export VA_USER VA_GROUP VA_DAEMON VA_OPTIONS VA_RUN_DIR=run VA_LOG=log NVRAM_FILE=store

fail() {
    tail output log
    echo "$*"
    exit 1
}

# expect STATUS ACTION
expect() {
    local status=0
    "${init[@]}" "$2" >>output 2>&1 || status=$?
    ((status == $1)) || fail "$2 ended with $status, not with $1"
}

folder=$(mktemp --directory)
cd "$folder"
trap '"${init[@]}" stop; rm -r "$folder"' EXIT
umask 022
"${@:5}" "$make_firmware" firmware
echo Properties.ImageSource.Sensor=imx122 >store

expect 3 status
expect 1 reload
expect 0 start
[[ $(stat --format=%A run run/ctrl run/ta) == drwxr-s---*prwxrwx---*srwxrwx--- ]] || fail "$(ls -la run)"
first=$(<run/pid)
expect 0 start
[[ $(<run/pid) == "$first" ]] || fail "started twice"
echo CameraTampering.T0.dfThreshold=41 >>store
expect 0 reload
timeout 20 sh -c 'until grep --quiet "sim: .*41" log; do sleep 0.1; done' || fail "settings not read again"
expect 0 restart
[[ $(<run/pid) != "$first" ]] || fail "not restarted"
expect 0 stop
[[ ! -e run/pid ]] || fail "has not ended"
echo 99999999 >run/pid
expect 1 status
rm -r run
ln -s "$folder" run
expect 1 start
