#!/usr/bin/env bash
# usage: scripts/test-page.sh
# Tests the page: its parts in node, then the whole in a real browser, with three cameras and a broker, of
# which it keeps screenshots. Ports and files are its own. VA_PRESET=asan, for instance, takes that build.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
# shellcheck source=scripts/daemon.sh
source "$root/scripts/daemon.sh"
# shellcheck source=scripts/browser.sh
source "$root/scripts/browser.sh"

(($# == 0)) || usage_error
pictures=$root/build/$preset/pictures

require_browser
shopt -s extglob
node --test tests/page/!(page)_test.@(js|mjs)
enter_folder
mkdir -p "$pictures"
start_wall 3
node "$root/tests/page/page_test.mjs" "$url" wall "$pictures"
say "pictures in ${pictures#"$root/"}"
