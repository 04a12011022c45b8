# shellcheck shell=bash
# Sourced after setup.sh by scripts that watch a real daemon: the one that keeps all it makes below the
# folder it is started in, beside any other; a folder that goes with the script.

preset=${VA_PRESET:-host}
bin=${root:?}/build/$preset/bin
# shellcheck disable=SC2034 # of scripts that run a client
dump=("$bin/va_dump" --directory run)

build_daemon() {
    configure "$preset"
    build "$preset" va_here va_dump make_firmware
}

# start_daemon: in the working directory, with the files `store` and `scene`; sets `daemon`.
start_daemon() {
    "$bin/make_firmware" firmware
    mkdir -p run
    NVRAM_FILE=store VA_SIM_SCENE=scene "$bin/va_here" >va.out 2>&1 &
    daemon=$!
    wait_until 20 daemon_is_ready || die "va does not start, see $PWD/va.out"
}

# The control FIFO is made last.
daemon_is_ready() {
    [[ -p run/ctrl ]]
}

stop_daemon() {
    kill -TERM "$daemon"
    wait "$daemon"
}

# wait_until SECONDS COMMAND...
wait_until() {
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < end)) || return 1
        sleep 0.1
    done
}

descriptors() {
    find "/proc/$daemon/fd" -mindepth 1 | wc -l
}

resident_kb() {
    sed -n 's/^VmRSS:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$daemon/status"
}

# enter_folder: a new one, which is removed at the end together with the script's children.
enter_folder() {
    folder=$(mktemp --directory)
    trap leave_folder EXIT
    cd "$folder" || exit
}

leave_folder() {
    end_children || kill -KILL "${children[@]}"
    rm -r "$folder"
}

# Ends what was started in the background, stopped ones too; fails when something does not end.
end_children() {
    mapfile -t children < <(jobs -p)
    ((${#children[@]})) || return 0
    kill -TERM "${children[@]}" 2>/dev/null || true
    kill -CONT "${children[@]}" 2>/dev/null || true
    wait_until 20 no_child_runs
}

no_child_runs() {
    [[ -z $(jobs -rp) ]]
}
