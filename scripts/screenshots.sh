#!/usr/bin/env bash
# usage: scripts/screenshots.sh [DIRECTORY]
# Makes the pictures of the documents, picture.png and wall.png, by a browser: the page of va_picture with
# the demonstration, and that of nine cameras, two of which are gone. They go to DIRECTORY (default: that
# of the preset's pictures below build/); `scripts/screenshots.sh docs` renews the documents'.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
# shellcheck source=scripts/daemon.sh
source "$root/scripts/daemon.sh"
# shellcheck source=scripts/browser.sh
source "$root/scripts/browser.sh"

[[ $# -le 1 && ${1-} != -* ]] || usage_error
cd "$OLDPWD" # which DIRECTORY is relative to
pictures=$(realpath --canonicalize-missing -- "${1-$root/build/$preset/pictures}")
cd "$root"

# shoot URL NAME WIDTH HEIGHT SELECTOR...: a screenshot of the page, once all of these are in it.
shoot() {
    node "$root/scripts/screenshot.mjs" "$1" "$pictures/$2.png" "${@:3}"
    say "$pictures/$2.png"
}

has_page() {
    [[ -s picture.html ]]
}

require mosquitto-clients
require_browser
build_daemon
build "$preset" va_picture
mkdir -p "$pictures"
enter_folder
cp "$root/platform/sim/demo.scene" scene
cp "$root/platform/sim/demo.conf" store

start_daemon
"$bin/va_picture" --directory run picture.html 2>picture.log &
wait_until 20 has_page || die "$(<picture.log)"
# Lit after the sixth event is the line, with both objects in sight.
shoot "file://$PWD/picture.html" picture 1200 560 "dialog[open] li:nth-child(6)" "dialog[open] .lit"
stop_daemon

start_wall 9
# Each has told what it sees before two of them go.
mosquitto_sub -p "$broker_port" -t cameras/+/va/scene -C 9 -W 20 >scenes
kill -KILL "$(<wall/camera4/va.pid)" "$(<wall/camera8/va.pid)"
shoot "$url" wall 1366 900 "article:nth-child(9)" "article.offline ~ article.offline" "article .lit"
