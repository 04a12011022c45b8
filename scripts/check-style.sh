#!/usr/bin/env bash
# Checks the layout of the sources, what clang-tidy finds in them, that no files include each other
# in a circle, the scripts and the man pages.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

preset=clang # whose compile commands clang-tidy can read as they are
product=(va conf ipc event util platform records tools mqtt video)

(($# == 0)) || die "usage: scripts/check-style.sh"

require clang-format clang-tidy shellcheck groff-base
require "${mqtt_packages[@]}" "${video_packages[@]}"
knows() {
    grep --quiet --fixed-strings "/$1\"" "build/$preset/compile_commands.json" 2>/dev/null
}
{ knows mqtt/va_mqtt.cpp && knows video/main.cpp; } ||
    configure "$preset" -DVA_MQTT=ON -DVA_VIDEO=ON

say "clang-format"
find . -path ./build -prune -o \( -name '*.h' -o -name '*.cpp' \) -print0 |
    xargs --null clang-format --dry-run -Werror

say "clang-tidy"
find "${product[@]}" -name '*.cpp' -print0 |
    xargs --null --max-args=1 --max-procs="$jobs" clang-tidy -p "build/$preset" --quiet

say "includes"
scripts/check-includes.py "build/$preset"

say "shellcheck"
shellcheck --external-sources scripts/*.sh .ci/run tests/boot/*.sh examples/*.sh
shellcheck --shell=sh packaging/va.init.in packaging/postinst.in packaging/prerm.in

say "man pages"
scripts/man-settings.sh --check
for page in man/*; do
    warnings=$(groff -ww -t -man -Tutf8 -rLL=78n "$page" 2>&1 >/dev/null)
    [[ -z $warnings ]] || die "$warnings"
done

say "no findings"
