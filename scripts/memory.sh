#!/usr/bin/env bash
# usage: scripts/memory.sh
# Prints the resident memory of the real `va`, all modules on, with 0, 8 and 64 clients.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
# shellcheck source=scripts/daemon.sh
source "$root/scripts/daemon.sh"

(($# == 0)) || usage_error

# connect COUNT: that many clients in all, each of which has got a record.
connect() {
    while ((clients < $1)); do
        clients=$((clients + 1))
        "${dump[@]}" od >"client.$clients" 2>/dev/null &
    done
    wait_until 30 all_have_records || die "clients without records, see $folder"
}

all_have_records() {
    local number
    for ((number = 1; number <= clients; ++number)); do
        [[ -s client.$number ]] || return 1
    done
}

build_daemon
enter_folder
cat >store <<'END_OF_STORE'
Properties.ImageSource.Sensor=imx122
EventDetection.FaceDetection=yes
EventDetection.CameraTampering=yes
ImageSource.I0.Sensor.DIS=yes
END_OF_STORE
cp "$root/platform/sim/demo.scene" scene
clients=0
start_daemon
printf '%8s %12s %12s\n' clients 'resident kB' descriptors
for count in 0 8 64; do
    connect "$count"
    printf '%8d %12d %12d\n' "$count" "$(resident_kb)" "$(descriptors)"
done
stop_daemon
