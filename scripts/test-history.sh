#!/usr/bin/env bash
# usage: scripts/test-history.sh
# Runs examples/history with va_mqtt, a real broker and a real database, which it stops in the middle.
# Ports and files are its own. VA_PRESET=asan, for instance, takes that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

(($# == 0)) || usage_error
preset=${VA_PRESET:-host}

require "${mqtt_packages[@]}" mosquitto mosquitto-clients openssl postgresql-15 python3-paho-mqtt \
    python3-psycopg
configure "$preset" -DVA_MQTT=ON
build "$preset" va_here va_mqtt make_firmware
# Debian's, which sees Debian's packages.
/usr/bin/python3 -B tests/history/history_test.py "build/$preset/bin" --verbose
