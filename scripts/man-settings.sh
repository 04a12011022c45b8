#!/usr/bin/env bash
# usage: scripts/man-settings.sh [--check]
# Generates the section SETTINGS of man/va.8 from that of docs/porting.md, where the settings are
# described; with --check it changes nothing, and fails when that section is not up to date.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"

page=$root/man/va.8
described=$root/docs/porting.md

# One setting is a paragraph: the keys, behind them in brackets the default and the mark R, then what
# the third column says, with its heading where that is no sentence.
settings() {
    awk -F ' *[|] *' '
        function roff(text) {
            gsub(/\\/, "\\e", text); gsub(/-/, "\\-", text); gsub(/…/, "...", text)
            while (sub(/`/, "\\fB", text)) sub(/`/, "\\fP", text)
            return text ~ /^[.\x27]/ ? "\\\&" text : text
        }
        /^## /  { inside = $0 == "## Settings"; next }
        !inside || /^$/ || /^[|]---/ { blank = blank || /^$/; next }
        /^### / { print ".SS " substr($0, 5); blank = 0; next }
        /^[|] Key / { label = $4 ~ /^Values/ ? "" : $4 ": "; next }
        /^[|]/  {
            print ".TP"
            print roff($2 " (" $3 ($5 == "R" ? "; R)" : ")"))
            print roff(label $4)
            next
        }
        { if (blank) print ".PP"; blank = 0; print roff($0) }
    ' "$described"
}

made() {
    sed '/^\.SH SETTINGS/q' "$page"
    echo '.\" Made by scripts/man-settings.sh from docs/porting.md.'
    echo 'In brackets behind a key: its default and, if it is reloaded, R.'
    settings
    sed -n '/^\.SH SEE ALSO/,$p' "$page"
}

case ${1-} in
--check) made | cmp --silent - "$page" || die "man/va.8 is not as docs/porting.md says: run scripts/man-settings.sh" ;;
'')
    text=$(made)
    printf '%s\n' "$text" >"$page"
    ;;
*) usage_error ;;
esac
