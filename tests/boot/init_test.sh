#!/bin/bash
# usage: init_test.sh SHELL INIT-SCRIPT MAKE-FIRMWARE VA_DUMP DAEMON [EMULATOR...]
# The init script under a shell, with a daemon whose paths are relative, in a folder of its own.
set -euo pipefail
[[ ${1-} != -h && ${1-} != --help ]] || exec sed -n '2,/^set/s/^# //p' "$0"
read -r -a init <<<"$1"
init+=("$2")
make_firmware=$3 dump=$4 command=("${@:6}" "$5")

VA_USER=$(id -un) VA_GROUP=$(id -gn) VA_DAEMON=${command[0]} VA_OPTIONS="${command[*]:1} -t"
export VA_USER VA_GROUP VA_DAEMON VA_OPTIONS VA_RUN_DIR=run VA_LOG=log NVRAM_FILE=store
export VA_DUMP=./dump VA_SIM_SCENE=scene

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

# expect_log PATTERN: within twenty seconds.
expect_log() {
    timeout 20 sh -c "until grep --quiet '$1' log; do sleep 0.1; done" || fail "not logged: $1"
}

folder=$(mktemp --directory)
cd "$folder"
trap '"${init[@]}" stop; rm -r "$folder"' EXIT
umask 022
"${@:6}" "$make_firmware" firmware
printf '#!/bin/sh\nexec %s "$@"\n' "${*:6} $dump" >dump
chmod +x dump
touch scene
echo Properties.ImageSource.Sensor=imx122 >store

expect 3 status
expect 1 reload
expect 0 start
expect 0 status
[[ $(stat --format=%A run run/ctrl run/ta) == drwxr-s---*prwxrwx---*srwxrwx--- ]] || fail "$(ls -la run)"
first=$(<run/pid)
expect 0 start
[[ $(<run/pid) == "$first" ]] || fail "started twice"
echo CameraTampering.T0.dfThreshold=41 >>store
expect 0 reload
expect_log 'sim: .*41'
expect 0 restart
[[ $(<run/pid) != "$first" ]] || fail "not restarted"
rm run/status && mkdir run/status
expect 0 status
tail -n 1 output | grep --quiet 'cannot write its status' || fail "not told"
rmdir run/status
kill -STOP "$(<run/pid)"
expect 151 status
rm log
expect 0 stop
[[ ! -e run/pid ]] || fail "has not ended"
expect_log 'Application quit'
echo 'fail ne3_val_ta_get_data 1 5' >scene
expect 0 start
expect 150 status
expect 0 stop
echo $$ >run/pid # of no daemon
expect 0 stop
echo 99999999 >run/pid
expect 1 status
rm -r run
ln -s "$folder" run
expect 1 start
