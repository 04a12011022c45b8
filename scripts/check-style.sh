#!/usr/bin/env bash
# usage: scripts/check-style.sh [FILE...]
# Checks which folder uses which, the layout of the sources and what clang-tidy finds in them (in these
# FILEs alone, if there are some), the scripts and the man pages.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

preset=clang # whose compile commands clang-tidy can read as they are

[[ ${1-} != -* ]] || usage_error
shopt -s extglob
require clang-format clang-tidy shellcheck groff-base
require "${mqtt_packages[@]}" "${video_packages[@]}"
knows() {
    grep --quiet --fixed-strings "/$1\"" "build/$preset/compile_commands.json" 2>/dev/null
}
{ knows mqtt/va_mqtt.cpp && knows video/main.cpp; } ||
    configure "$preset" -DVA_MQTT=ON -DVA_VIDEO=ON
files=("$@")
(($#)) || mapfile -t files < <(git ls-files --cached --others --exclude-standard)

# units: the sources that clang-tidy compiles to see the files; a header's source, or one that
# includes it. Tests and the like are not looked at.
units() {
    local file
    for file in "${files[@]}"; do
        case $file in
        @(tests|bench|fuzz|examples)/*) ;;
        *.cpp) echo "$file" ;;
        *.h)
            if [[ -f ${file%.h}.cpp ]]; then
                echo "${file%.h}.cpp"
            else
                { git grep --untracked --files-with-matches --fixed-strings "#include \"$file\"" -- \
                    '*.cpp' ':!tests' ':!bench' ':!fuzz' ':!examples' || true; } | awk 'NR == 1'
            fi
            ;;
        esac
    done | sort --unique
}

# existing NAME...: each ended by a zero byte.
existing() {
    local file
    for file; do
        [[ ! -f $file ]] || printf '%s\0' "$file"
    done
}

say "folders" # configures, so that clang-tidy knows new files
scripts/check-includes.py "build/$preset"

say "clang-format"
for file in "${files[@]}"; do
    [[ $file != *.@(h|cpp) ]] || existing "$file"
done | xargs --null --no-run-if-empty clang-format --dry-run -Werror

say "clang-tidy"
mapfile -t sources < <(units)
existing "${sources[@]}" |
    xargs --null --no-run-if-empty --max-args=1 --max-procs="$jobs" clang-tidy -p "build/$preset" --quiet

say "shell scripts"
scripts=(scripts/*.sh .ci/run tests/boot/*.sh tests/camera/*.sh)
shellcheck --external-sources "${scripts[@]}" bench/*.sh examples/*.sh tests/camera/init
# What is set in one, others use.
shellcheck --exclude=SC1091,SC2034,SC2154 tests/camera/steps/*.sh
shellcheck --exclude=SC2013,SC2046 tests/camera/image/usr/share/camera/{run-steps,sysinit}
shellcheck --shell=sh packaging/va.init.in packaging/postinst.in packaging/prerm.in
for file in "${scripts[@]}"; do
    [[ ! -x $file || $(sed -n 2p "$file") == "# usage: "* ]] || die "$file: its second line is no usage, for --help"
done

say "man pages"
scripts/man-settings.sh --check
for page in man/*; do
    warnings=$(groff -ww -t -man -Tutf8 -rLL=78n "$page" 2>&1 >/dev/null)
    [[ -z $warnings ]] || die "$warnings"
done

say "no findings"
