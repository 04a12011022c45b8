#!/usr/bin/env bash
# usage: scripts/soak.sh MINUTES
# Runs the real `va` for some minutes: all modules on, objects at 100 results a second, clients that
# keep up, stall, come and go, die within a frame and send garbage, settings that change all the while.
# Ends with a table. Fails when a client that keeps up misses a record, when a frame is not whole, when
# a descriptor or memory leaks.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
# shellcheck source=scripts/daemon.sh
source "$root/scripts/daemon.sh"

[[ $# == 1 && $1 =~ ^[1-9][0-9]*$ ]] || usage_error
minutes=$1
keepers=4
spare_kb=128 # by which the resident memory may grow: the allocator's share

faults=()

fault() {
    faults+=("$*")
}

write_scene() {
    local number y
    echo "period 10000"
    echo "od_interval 10"
    for ((number = 1; number <= 20; ++number)); do
        y=$((50 * number))
        echo "object $number dynamic 160x120 from 100,$y to 1800,$((1050 - y)) between 0 10000"
    done
    echo "object 21 static 200x200 from 1500,500 to 1500,500 between 0 10000"
    echo "face 3 at 400,300 size 200x200 between 0 10000"
    echo "every 50 ta 1 2 3 4"
}

# write_store NUMBER [LINE]: settings that differ from those of other numbers. Some object is left
# by all of them.
write_store() {
    cat >store.new <<END
Properties.ImageSource.Sensor=imx122
EventDetection.FaceDetection=yes
EventDetection.CameraTampering=yes
ImageSource.I0.Sensor.DIS=yes
VMDWindow.Sensitivity=$(($1 % 128))
VideoAnalytics.OD.DOParam.MaxObjNum=$((10 + $1 % 20))
VMDWindow.NonDetect.V0.Left=0
VMDWindow.NonDetect.V0.Right=$((1000 + $1 % 3000))
VMDWindow.NonDetect.V0.Top=0
VMDWindow.NonDetect.V0.Bottom=9999
CrossLine.C0.StartX=$((4000 + $1 % 2000))
CrossLine.C0.StartY=0
CrossLine.C0.EndX=5000
CrossLine.C0.EndY=9999
CameraTampering.T0.dfThreshold=$(($1 % 256))
${2-}
END
    mv store.new store
}

# Opened for reading too: without a daemon it would wait for ever.
control() {
    echo "$1" 1<>run/ctrl
}

# Reads what va_dump prints of the objects and writes at the end: records, gaps between them, broken
# ones. The ninth word of each object is the number of the result.
judge() {
    awk '{
        entries = $3 / 40
        number = $12
        whole = $3 % 40 == 0 && NF == 3 + 11 * entries - 1
        for (i = 1; i < entries; ++i)
            whole = whole && $(12 + 11 * i) == number
        broken += !whole
        gaps += records > 0 && number != last + 1
        last = number
        ++records
    }
    END { print records + 0, gaps + 0, broken + 0 }'
}

# watch NAME: a client of the objects in the background, judged in the file NAME; sets `client`.
watch() {
    rm -f "$1"
    "${dump[@]}" od > >(judge >"$1.part" && mv "$1.part" "$1") 2>"$1.err" &
    client=$!
}

# dismiss NAME: ends the client.
dismiss() {
    kill -CONT "$client"
    kill -TERM "$client"
    wait "$client" || true
    wait_until 20 test -e "$1" || die "$1 gives no verdict"
}

crowd_stays() {
    [[ ! -e crowd.ends ]]
}

is_connected() {
    grep --quiet connected "$1"
}

stall() {
    watch stalls
    while crowd_stays; do
        kill -STOP "$client"
        sleep 4
        kill -CONT "$client"
        sleep 2
    done
    dismiss stalls
}

come_and_go() {
    while crowd_stays; do
        "${dump[@]}" -n 50 od 2>/dev/null | judge >>visits
        "${dump[@]}" -n 20 >/dev/null 2>&1
    done
}

# Stopped until a frame has found no room in its socket.
die_within_a_frame() {
    while crowd_stays; do
        "${dump[@]}" od >/dev/null 2>victim.err &
        client=$!
        wait_until 20 is_connected victim.err
        kill -STOP "$client"
        sleep 3
        kill -KILL "$client"
        wait "$client" 2>/dev/null || true
        echo >>deaths
    done
}

# Any bytes into the sockets; into the FIFO lines, which is all that does not close it.
send_rubbish() {
    local stream
    while crowd_stays; do
        for stream in od vmf fd ta; do
            head --bytes 5000 /dev/urandom | socat -u - "UNIX-CONNECT:run/$stream" 2>/dev/null || true
            control "$(head --bytes 60 /dev/urandom | base64 --wrap 0)"
            echo >>rubbish
        done
        sleep 0.1
    done
}

change_settings() {
    local number=0
    while crowd_stays; do
        write_store "$((++number))"
        control reconfig
        echo >>reconfigs
        sleep 0.2
    done
}

# crowd SECONDS
crowd() {
    local number role roles=() keeping=()
    rm -f crowd.ends visits deaths rubbish reconfigs
    for ((number = 1; number <= keepers; ++number)); do
        watch "keeps.$number"
        keeping+=("$client")
    done
    for role in stall come_and_go die_within_a_frame send_rubbish change_settings; do
        "$role" 2>>roles.err &
        roles+=($!)
    done
    sleep "$1"
    touch crowd.ends
    wait "${roles[@]}" || die "a part of the crowd failed: $(<roles.err)"
    for ((number = 1; number <= keepers; ++number)); do
        client=${keeping[number - 1]}
        dismiss "keeps.$number"
    done
}

all_have_left() {
    kill -0 "$daemon" 2>/dev/null || die "va has ended: $(tail va.out)"
    [[ $(descriptors) == "$idle_descriptors" ]]
}

processor_ticks() {
    local fields
    read -r -a fields <"/proc/$daemon/stat"
    echo $((fields[13] + fields[14]))
}

# row NAME RECORDS GAPS BROKEN
row() {
    printf '%-22s %9d %6d %12d\n' "$1" "$2" "$3" "$(($2 - $4))"
    (($4 == 0)) || fault "$1: $4 frames are not whole"
    (($2 > 0)) || fault "$1: no record"
}

report_clients() {
    local number verdict
    printf '%-22s %9s %6s %12s\n' client records gaps 'whole frames'
    for ((number = 1; number <= keepers; ++number)); do
        read -r -a verdict <"keeps.$number"
        row "keeps up, $number" "${verdict[@]}"
        ((verdict[1] == 0)) || fault "client $number keeps up and missed records"
        [[ $(grep --count connected "keeps.$number.err") == 1 ]] || fault "client $number was dropped"
    done
    read -r -a verdict < <(awk '{ r += $1; g += $2; b += $3 } END { print r, g, b }' visits)
    row "come and go, $(wc -l <visits)" "${verdict[@]}"
    # Each visit is judged by itself.
    ((verdict[1] == 0)) || fault "a client that came and went missed records"
    read -r -a verdict <stalls
    row "stalls" "${verdict[@]}"
    ((verdict[1] > 0)) || fault "the client that stalls missed nothing: its buffers were never full"
    printf '%-22s %9d\n' "died within a frame" "$(wc -l <deaths)" \
        "sent rubbish" "$(wc -l <rubbish)" "changed settings" "$(wc -l <reconfigs)"
}

# compare WHAT START END TOLERANCE
compare() {
    printf '%-22s %9d %9d\n' "$1" "$2" "$3"
    (($3 <= $2 + $4)) || fault "$1 left over: $2 before, $3 after"
}

report_daemon() {
    local ticks=$(($(processor_ticks) - start_ticks)) seconds=$((SECONDS - start))
    printf '\n%-22s %9s %9s\n' va start end
    compare descriptors "$idle_descriptors" "$(descriptors)" 0
    compare "resident kB" "$start_kb" "$(resident_kb)" "$spare_kb"
    printf '%-22s %9s s in %d s\n' "processor time" \
        "$(awk "BEGIN { printf \"%.1f\", $ticks / $(getconf CLK_TCK) }")" "$seconds"
}

has_two_objects() {
    "${dump[@]}" -n 1 od 2>/dev/null | grep --quiet ' od  *80 '
}

check_that_settings_count() {
    write_store 0 VideoAnalytics.OD.DOParam.MaxObjNum=1 # and one that is static
    "${dump[@]}" --reconfig >/dev/null || fault "settings are not read any more"
    wait_until 20 has_two_objects || fault "settings have no effect any more"
}

require socat
build_daemon
enter_folder
write_scene >scene
write_store 0
start_daemon
idle_descriptors=$(descriptors)

say "a crowd to warm up, then $minutes min of it, in $folder"
crowd 8
wait_until 20 all_have_left || die "descriptors left after the first crowd: $(descriptors)"
start_kb=$(resident_kb)
start_ticks=$(processor_ticks)
start=$SECONDS

crowd "$((60 * minutes))"
wait_until 20 all_have_left || true # else the table tells
report_clients
report_daemon
check_that_settings_count
stop_daemon
((${#faults[@]} == 0)) || die "$(printf '\n    %s' "${faults[@]}")"
say "nothing missed, nothing left over"
