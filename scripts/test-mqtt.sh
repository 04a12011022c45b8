#!/usr/bin/env bash
# usage: scripts/test-mqtt.sh
# Runs va_mqtt with a real broker and a real daemon, and brokers as packaging/mosquitto/ and packaging/nats/
# set them up. Ports and files are their own. VA_PRESET=asan, for instance, takes that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

(($# == 0)) || usage_error
preset=${VA_PRESET:-host}

require "${mqtt_packages[@]}" mosquitto mosquitto-clients nats-server openssl \
    python3-{jinja2,jsonschema,paho-mqtt}
configure "$preset" -DVA_MQTT=ON
build "$preset" va_here va_mqtt make_firmware
# Debian's, which sees Debian's packages.
for tests in mqtt mosquitto cluster; do
    /usr/bin/python3 -B "tests/mqtt/${tests}_test.py" "build/$preset/bin" --verbose
done
