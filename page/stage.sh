#!/usr/bin/env bash
# usage: page/stage.sh DIRECTORY
# Puts the page into a directory that a web server, such as Mosquitto itself, shows. Needs npm.
set -euo pipefail
page=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
[[ $# == 1 && $1 != -* ]] || {
    echo "usage: page/stage.sh DIRECTORY" >&2
    exit 2
}
[[ -f $page/node_modules/mqtt/dist/mqtt.min.js ]] ||
    npm --prefix "$page" ci --omit=dev --no-audit --no-fund
mkdir -p "$1"
cp "$page"/{index.html,page.css,wall.js,camera.js,drawing.js} \
    "$page"/../tools/va_picture/{look.css,look_defs.svg} "$1"
cp "$page/node_modules/mqtt/dist/mqtt.min.js" "$1/mqtt.js"
