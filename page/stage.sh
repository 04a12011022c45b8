#!/usr/bin/env bash
# usage: page/stage.sh DIRECTORY
# Puts the page, which is index.html and the files that it names, into a directory that a web server, such
# as Mosquitto itself, shows. Needs npm.
set -euo pipefail
page=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
[[ $# == 1 && $1 != -* ]] || {
    echo "usage: page/stage.sh DIRECTORY" >&2
    exit 2
}
library=$page/node_modules/mqtt/dist/mqtt.min.js
[[ -f $library ]] || npm --prefix "$page" ci --omit=dev --no-audit --no-fund
mkdir -p "$1"
cp "$page/index.html" "$1"
grep --only-matching --perl-regexp '(?:src|href)="\K[^":]+(?=")' "$page/index.html" |
    while read -r file; do
        if [[ $file == mqtt.js ]]; then
            cp "$library" "$1/$file"
        else
            cp "$page/$file" "$1"
        fi
    done
