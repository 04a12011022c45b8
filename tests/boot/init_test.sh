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

# expect_run STATUS SIGNAL SECONDS [CONDITION]: `run` (to end in order) or else its daemon gets the signal.
expect_run() {
    local -x VA_CHECK_SECONDS=$3.$$
    local process status=0 sleeps="grep -qsxz '$3[.]$$' /proc/[0-9]*/cmdline"
    "${init[@]}" run >>output 2>&1 &
    process=$!
    timeout 20 sh -c "until $sleeps && ${4-true}; do sleep 0.1; done" || fail "run does not supervise"
    (($1 == 0)) || process=$(<run/pid)
    kill "-$2" "$process"
    wait $! || status=$?
    ((status == $1)) || fail "run ended with $status, not with $1"
}

# expect_log PATTERN: within twenty seconds.
expect_log() {
    timeout 20 sh -c "until grep --quiet '$1' log; do sleep 0.1; done" || fail "not logged: $1"
}

folder=$(mktemp --directory)
cd "$folder"
trap 'kill $(jobs -p) 2>/dev/null || true; "${init[@]}" stop; rm -r "$folder"' EXIT
umask 022
"${@:6}" "$make_firmware" firmware
printf '#!/bin/sh\n[ ! -e asked ] || . ./asked\nexec %s "$@"\n' "${*:6} $dump" >dump
chmod +x dump
touch scene
echo Properties.ImageSource.Sensor=imx122 >store

expect 3 status
expect 1 reload
setsid --wait sh -c 'trap : HUP; "$@" && kill -HUP 0' sh "${init[@]}" start >>output 2>&1 || fail "not started"
expect 0 status
[[ $(stat --format=%A run run/ctrl run/ta) == drwxr-s---*prwxrwx---*srwxrwx--- ]] || fail "$(ls -la run)"
first=$(<run/pid)
score=$(echo -500 2>/dev/null >/proc/self/oom_score_adj || true; cat /proc/self/oom_score_adj)
[[ $(<"/proc/$first/oom_score_adj") == "$score" ]] || fail "dies for another's memory"
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
expect_run 1 CONT 1
expect 3 status
echo $$ >run/pid # of no daemon
expect 0 stop
: >scene
expect_run 0 TERM 1000
expect 3 status
expect_run 1 STOP 1
expect_log 'no answer.*restarting'
expect 3 status
echo "rm asked; kill \$(cat running)" >asked # while it starts
timeout --foreground 20 "${init[@]}" run >>output 2>&1 &
echo $! >running
wait $! || fail "interrupted, run ended with $?"
expect 3 status
expect 0 start
echo "echo >>answers; case \$(wc -l <answers) in 1 | 3) exit 5 ;; esac" >asked # none, but not twice in a row
: >answers
expect_run 0 TERM 1 "[ \$(wc -l <answers) -gt 4 ]"
rm asked
seq 2000 >>log
expect 0 start
expect_run 1 KILL 1 # takes it over
expect 1 status
(($(wc --lines <log.1) >= 2000)) || fail "of the log is not kept what should be"
rm -r run
mkdir run
if chown 1 run 2>/dev/null; then # somebody else's
    expect 1 start
fi
rmdir run
ln -s "$folder" run
expect 1 start
