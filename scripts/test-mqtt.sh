#!/usr/bin/env bash
# usage: scripts/test-mqtt.sh
# Runs va_mqtt with a real broker, as packaging/mosquitto/ sets one up, and a real daemon; then the
# wall in a real browser, of which it keeps screenshots. Ports and files are its own. VA_PRESET=asan,
# for instance, takes that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

(($# == 0)) || usage_error
preset=${VA_PRESET:-host}
build=build/mqtt-$preset
log=$build/wall.log
pictures=$build/pictures

require "${mqtt_packages[@]}" mosquitto mosquitto-clients openssl python3-jsonschema chromium
configure "$preset" -B "$root/$build" -DVA_MQTT=ON -DVA_TESTS=OFF -DVA_RUN_DIR=run \
    -DVA_FIRMWARE_DIR=firmware
cmake --build "$build" --target va va_mqtt make_firmware
# Debian's, which sees Debian's packages.
/usr/bin/python3 -B tests/mqtt/mqtt_test.py "$build/bin" --verbose

stop_wall() {
    kill -TERM "$wall" 2>/dev/null || true
    wait "$wall" || true
}

[[ -d page/node_modules/puppeteer-core ]] || npm --prefix page ci --no-audit --no-fund
mkdir -p "$pictures"
port=$(/usr/bin/python3 -c 'import socket; print(socket.create_server(("127.0.0.1", 0)).getsockname()[1])')
scripts/wall.sh -n 3 -p "$port" >"$log" 2>&1 &
wall=$!
trap stop_wall EXIT
for ((tries = 0; tries < 600; ++tries)); do
    grep --quiet "page  " "$log" && break
    kill -0 "$wall" 2>/dev/null || die "$(tail "$log")"
    sleep 0.1
done
node tests/page/page_test.mjs "http://127.0.0.1:$port/" "$build/wall" "$pictures"
say "pictures in $pictures"
