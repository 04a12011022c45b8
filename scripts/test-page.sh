#!/usr/bin/env bash
# usage: scripts/test-page.sh
# Tests the page: its parts in node, then the whole in a real browser, with three cameras and a broker, of
# which it keeps screenshots, then behind nginx. Ports and files are its own. VA_PRESET=asan, for instance,
# takes that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
# shellcheck source=scripts/daemon.sh
source "$root/scripts/daemon.sh"
# shellcheck source=scripts/browser.sh
source "$root/scripts/browser.sh"

# make_authority FOLDER: a certificate for this machine in it, which a browser whose home it is trusts.
make_authority() {
    local trusted=sql:$1/.pki/nssdb
    mkdir -p "$1/.pki/nssdb"
    openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=va -addext subjectAltName=DNS:localhost \
        -keyout "$1/broker.key" -out "$1/broker.crt" 2>/dev/null
    certutil -d "$trusted" -N --empty-password
    certutil -d "$trusted" -A -n va -t C,, -i "$1/broker.crt"
}

(($# == 0)) || usage_error
pictures=$root/build/$preset/pictures

require_browser
require nginx-light libnss3-tools openssl
shopt -s extglob
node --test tests/page/!(page|tls)_test.@(js|mjs)
enter_folder
mkdir -p "$pictures"
make_authority tls
start_wall 3
node "$root/tests/page/page_test.mjs" "$url" wall "$pictures"
HOME=$folder/tls node "$root/tests/page/tls_test.mjs" "$folder/wall/page" "$pictures"
say "pictures in ${pictures#"$root/"}"
