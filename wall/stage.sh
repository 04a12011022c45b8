#!/usr/bin/env bash
# usage: wall/stage.sh DIRECTORY
# Puts the page into a directory that a web server, such as Mosquitto itself, shows. Needs npm.
set -euo pipefail
wall=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
[[ $# == 1 && $1 != -* ]] || {
    echo "usage: wall/stage.sh DIRECTORY" >&2
    exit 2
}
[[ -f $wall/node_modules/mqtt/dist/mqtt.min.js ]] ||
    npm --prefix "$wall" ci --omit=dev --no-audit --no-fund
mkdir -p "$1"
cp "$wall"/{index.html,wall.css,wall.js,camera.js,drawing.js} \
    "$wall"/../tools/va_picture/{look.css,look_defs.svg} "$1"
cp "$wall/node_modules/mqtt/dist/mqtt.min.js" "$1/mqtt.js"
