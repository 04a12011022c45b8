#!/usr/bin/env bash
# usage: scripts/make-stubs.sh FILE.so
# Makes a library of empty functions under the names that platform/ declares, to link a program for
# the camera without its SDK: for its size, to try the installation. Nothing it links can run. CC names
# the compiler.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

(($# == 1)) || usage_error

require_for_preset arm
mkdir -p "$(dirname "$1")"
sed -nE 's/^int ((ne3|nvram)_\w+)\(.*/int \1(void) { return -1; }/p' platform/*.h |
    "${CC:-arm-linux-gnueabihf-gcc}" -shared -fPIC -x c -o "$1" -
say "$1"
