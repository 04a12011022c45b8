#!/usr/bin/env bash
# usage: scripts/test-mqtt.sh
# Runs va_mqtt against a real broker, as packaging/mosquitto/ sets one up, and a real daemon. Ports
# and files are its own. VA_PRESET=asan, for instance, takes that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

(($# == 0)) || die "usage: scripts/test-mqtt.sh"
preset=${VA_PRESET:-host}
build=build/mqtt-$preset

require "${mqtt_packages[@]}" mosquitto mosquitto-clients openssl python3-jsonschema
configure "$preset" -B "$root/$build" -DVA_MQTT=ON -DVA_TESTS=OFF -DVA_RUN_DIR=run \
    -DVA_FIRMWARE_DIR=firmware
cmake --build "$build" --target va va_mqtt make_firmware
# Debian's, which sees Debian's packages.
/usr/bin/python3 -B tests/mqtt/mqtt_test.py "$build/bin" --verbose
