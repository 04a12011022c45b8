#!/usr/bin/env bash
# usage: scripts/test.sh [-W] [PRESET...]
# Builds and runs the test suite under each preset: host (default), clang, asan, tsan, arm.
#   -W  warnings are errors
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

options=()
while getopts W option; do
    case $option in
    W) options+=(-DVA_WERROR=ON) ;;
    *) usage_error ;;
    esac
done
shift $((OPTIND - 1))
(($#)) || set -- host

require busybox python3 socat # which the tests run
for preset in "$@"; do
    say "preset $preset"
    configure "$preset" "${options[@]}"
    build "$preset"
    ctest --preset "$preset"
done
