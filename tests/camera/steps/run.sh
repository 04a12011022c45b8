#!/bin/sh
# usage: run.sh STEP...
# Tries `va` on the camera it runs on: each step is a line with its name, "passed", "FAILED" or "not
# tried", and what was seen. As root, with va running; needs a POSIX shell, the tools of BusyBox and
# va_dump. Ends with 0 when none has failed.
# Steps, each a file beside this one:
#   boot      records come, under the system's supervisor
#   clock     the clock is set, forward by decades and back by an hour, without a loss
#   writes    nothing is written to the flash (for VA_QUIET_SECONDS, default 600)
#   rest      how often the daemon wakes up
#   watchdog  a stopped, blind or hanging daemon is restarted, and its clients return
#   memory    another program takes all memory
#   full      the run directory is full, and has room again
#   upgrade   the package is replaced, and removed (with VA_OLD and VA_NEW, the packages' files)
#   busybox   the init script, and BusyBox's init as its supervisor
# Settings: VA_RUN_DIR, default /tmp/va_info; VA_SCENE, the file with the scene of the software
# stand-in, where there is one. On a chip, what takes a scene is not tried.
here=$(dirname "$0")
not_tried=77

usage_error() {
    [ $# -eq 0 ] || echo "$0: $*" >&2
    sed -n '2,/^here/s/^# //p' "$0" >&2
    exit 2
}

[ $# -gt 0 ] || usage_error
for step in "$@"; do
    case $step in
    boot | clock | writes | rest | watchdog | memory | full | upgrade | busybox | network) ;;
    *) usage_error "there is no step $step" ;;
    esac
done
[ "$(id -u)" -eq 0 ] || usage_error "it takes root"
command -v va_dump >/dev/null || usage_error "it takes va_dump"
# When memory is short, others are killed, not the one who clears up.
echo -900 2>/dev/null >/proc/self/oom_score_adj

failed=0
for step in "$@"; do
    result=$(
        exec 2>&1
        # shellcheck source=tests/camera/steps/common.sh
        . "$here/common.sh"
        # shellcheck source=/dev/null
        . "$here/$step.sh"
    )
    case $? in
    0) verdict=passed ;;
    "$not_tried") verdict="not tried" ;;
    *)
        verdict=FAILED
        failed=1
        ;;
    esac
    printf '%-10s %-10s %s\n' "$step" "$verdict" "$(echo "$result" | tail -n 1)"
    [ "$verdict" != FAILED ] || echo "$result" | sed 's/^/    /'
done
exit "$failed"
