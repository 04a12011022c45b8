# shellcheck shell=bash
# Sourced after daemon.sh by scripts that look at the page in a browser.

require_browser() {
    require chromium python3
    command -v npm >/dev/null || die "npm is needed for the page: install Node.js with npm"
    [[ ${root:?}/page/node_modules/.package-lock.json -nt $root/page/package-lock.json &&
        -d $root/page/node_modules/axe-core ]] ||
        npm --prefix "$root/page" ci --no-audit --no-fund
}

# start_wall CAMERAS: in the folder `wall` of the working directory; sets `url`, of the page, and
# `broker_port`.
start_wall() {
    local port
    port=$(python3 -c 'import socket; print(socket.create_server(("127.0.0.1", 0)).getsockname()[1])')
    # shellcheck disable=SC2034 # of the scripts
    url=http://127.0.0.1:$port/ broker_port=$((port + 1))
    : >wall.log
    "$root/scripts/wall.sh" -n "$1" -p "$port" -d wall >wall.log 2>&1 &
    wall=$!
    wait_until 600 wall_is_up || die "$(tail wall.log)"
}

wall_is_up() {
    kill -0 "$wall" 2>/dev/null || die "$(tail wall.log)"
    grep --quiet "page  " wall.log
}
