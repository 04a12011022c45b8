#!/usr/bin/env bash
# Builds and runs the whole test suite.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

usage="usage: scripts/test.sh [-W] [preset...]
Builds and runs the test suite under each preset: host (default), clang, asan, tsan, arm.
    -W  warnings are errors"

options=()
while getopts hW option; do
    case $option in
    h)
        echo "$usage"
        exit
        ;;
    W) options+=(-DVA_WERROR=ON) ;;
    *) die "$usage" ;;
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
