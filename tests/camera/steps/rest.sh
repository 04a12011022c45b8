# shellcheck shell=sh
# How often the daemon wakes up, and what that costs. The loop's timer of 100 ms is ten times a second,
# its others less than two, and a result wakes it twice: when it comes, and when it can be written. The
# reads of the chip wait as the chip's library does, and after a pass without a result for 100 ms.

# switches THREAD|*: each wait of a thread ends with a switch to it.
switches() {
    # shellcheck disable=SC2086
    cat "/proc/$process/task/"$1/status | awk '/^voluntary_ctxt/ { sum += $2 } END { print sum }'
}

ticks() {
    sed 's/.*) //' "/proc/$process/stat" | cut -d ' ' -f 12,13 | tr ' ' '+'
}

results() {
    value 'stream\.[a-z]*\.records' | awk '{ sum += $1 } END { print sum }'
}

# measure WHAT: adds it to `seen`.
measure() {
    process=$(process)
    results=$(results)
    main=$(switches "$process") all=$(switches "*") spent=$(($(ticks))) start=$(now)
    sleep 15
    hundredths=$(($(now) - start))
    main=$((($(switches "$process") - main) * 100 / hundredths))
    wakes=$((($(switches "*") - all) * 100 / hundredths))
    spent=$((($(ticks) - spent) * 1000 / hundredths))
    results=$((($(results) - results) * 100 / hundredths))
    seen="$seen${seen:+; }$1, $results results/s: $wakes wake-ups/s, $main of them of the loop"
    seen="$seen, $((spent / 10)).$((spent % 10)) % of the processor"
    [ "$main" -le $((12 + 2 * results)) ] || fail "the loop wakes too often: $seen"
}

seen=
if [ -w "$VA_SCENE" ]; then
    play "od_interval 1000000"
    wait_until 20 is_well || fail "not well with an empty scene"
    measure "without clients"
    service restart
    wait_until 20 is_well || fail "not well again"
fi
read_objects
measure "with $(value stream.od.clients) clients"
echo "$seen"
