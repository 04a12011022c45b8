#!/usr/bin/env bash
# usage: scripts/check-docs.sh [DOCUMENT...]
# Runs the marked blocks of the documents as they stand, from the root of the tree, with the programs
# of the preset `host`, and compares what they print with what the document shows. Where a document
# writes below /tmp, the run directory of `va` included, a temporary folder is used.
#
# A mark is the line before an indented block:
#   <!-- run -->                 lines that begin with "$ " are commands, the others what they print;
#                                without any such line the block is one script
#   <!-- run: background -->     one command, which goes on until the end of the document
#   <!-- run: line by line -->   each line is ended after two seconds; by then it has printed
#   <!-- shown by: COMMAND -->   what that command prints
# "numbers vary" in a mark: all numbers of two digits or more are the same. Times and the path of the
# tree are never compared; lines that the document leaves out are not missed.
# <!-- background: COMMAND --> needs no block.
set -euo pipefail
# shellcheck source=scripts/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/setup.sh"
# shellcheck source=scripts/daemon.sh
source "$root/scripts/daemon.sh"

longest=300   # seconds that a block, or a command in the background, may take
wait_limit=60 # seconds until a command in the background has printed what is shown
store=$root/build/host/demo/nvram.conf

fail() {
    echo "$document:$line_number: $1" >&2
    exit 1
}

# masked: what may differ from run to run, made the same.
masked() {
    local expressions=(
        -e "s|$folder/|/tmp/|g" -e "s|$root/|.../|g"
        -e 's/[0-9-]*T\?[0-9]\{2\}:[0-9]\{2\}:[0-9]\{2\}\(\.[0-9]*\)\?\([+-][0-9:]*\)\?/TIME/g'
    )
    [[ $mark != *"numbers vary"* ]] || expressions+=(-e 's/[0-9]\{2,\}/N/g' -e 's/  */ /g')
    sed "${expressions[@]}"
}

# first_missing SHOWN PRINTED: the first line of one that the other does not have behind the one
# before it.
first_missing() {
    awk 'FILENAME == ARGV[1] { shown[++count] = $0; next }
        next_shown < count && $0 == shown[next_shown + 1] { ++next_shown }
        END { if (next_shown < count) print shown[next_shown + 1] }' <(masked <"$1") <(masked <"$2")
}

# all_shown FILE
all_shown() {
    not_printed=$(first_missing "$folder/shown" "$1")
    [[ -z $not_printed ]]
}

# require_all_shown SECONDS FILE
require_all_shown() {
    wait_until "$1" all_shown "$2" ||
        fail "not printed: $not_printed
$(masked <"$2" | tail --lines=20)"
}

# run_script TEXT
run_script() {
    timeout "$longest" bash -eu -o pipefail -c "$1" </dev/null >"$folder/printed" 2>&1 ||
        fail "status $? of: $1
$(cat "$folder/printed")"
}

start_in_background() {
    rm -rf "$folder/va_info"
    timeout --kill-after=10 "$longest" bash -c "exec $1" </dev/null >"$folder/background" 2>&1 &
    background=$!
    wait_until "$wait_limit" test -p "$folder/va_info/ctrl" || fail "no daemon after: $1
$(cat "$folder/background")"
}

stop_background() {
    [[ -n $background ]] || return 0
    kill -TERM "$background" || fail "the command in the background has ended"
    wait "$background" || fail "status $? of the command in the background"
    background=
}

run_line_by_line() {
    local line status
    while IFS= read -r line; do
        status=0
        timeout 2 bash -eu -o pipefail -c "$line" </dev/null \
            >"$folder/printed" 2>"$folder/errors" || status=$?
        [[ -s $folder/printed && ($status == 0 || $status == 124) ]] ||
            fail "status $status, $(wc -l <"$folder/printed") lines printed by: $line
$(cat "$folder/errors")"
    done <<<"$1"
}

# run_session TEXT: each command with what is shown behind it.
run_session() {
    local line command=
    : >"$folder/shown"
    while IFS= read -r line; do
        if [[ $line == '$ '* ]]; then
            finish_command
            command=${line#\$ }
            : >"$folder/shown"
        elif [[ $line != ... ]]; then
            printf '%s\n' "$line" >>"$folder/shown"
        fi
    done <<<"$1"
    finish_command
}

finish_command() {
    [[ -n $command ]] || return 0
    if [[ $mark == *background* ]]; then
        start_in_background "$command"
        require_all_shown "$wait_limit" "$folder/background"
    else
        run_script "$command"
        require_all_shown 0 "$folder/printed"
    fi
}

run_block() {
    local text=${block%%+($'\n')}
    text=${text//\/tmp\//$folder/}
    blocks=$((blocks + 1))
    case $mark in
    *"line by line"*) run_line_by_line "$text" ;;
    '<!-- shown by: '*)
        line=${mark#<!-- shown by: }
        run_session "\$ ${line% -->}"$'\n'"$text"
        ;;
    *) if [[ $'\n'$text == *$'\n$ '* ]]; then run_session "$text"; else run_script "$text"; fi ;;
    esac
}

check_document() {
    local line mark='' block='' number=0
    line_number=0
    background=
    say "$document"
    while IFS= read -r line || [[ -n $line ]]; do
        number=$((number + 1))
        if [[ -n $mark && $line == "    "* ]]; then
            block+=${line#    }$'\n'
            continue
        elif [[ -n $mark && -z $line ]]; then
            [[ -z $block ]] || block+=$'\n'
            continue
        elif [[ -n $block ]]; then
            run_block
            mark='' block=''
        elif [[ -n $mark ]]; then
            fail "a mark without a block"
        fi
        line_number=$number
        case $line in
        '<!-- run -->' | '<!-- run: '*' -->' | '<!-- shown by: '*' -->')
            mark=${line//\/tmp\//$folder/}
            ;;
        '<!-- background: '*' -->')
            line=${line#<!-- background: }
            start_in_background "${line% -->}"
            ;;
        esac
    done < <(cat "$document" && echo end)
    [[ -z $mark ]] || fail "a mark without a block"
    stop_background
}

# leave: as it was found.
leave() {
    [[ ! -f $folder/nvram.conf ]] || mv "$folder/nvram.conf" "$store"
    leave_folder
    build_host "$run_dir"
}

# build_host RUN_DIR
build_host() {
    configure host -DVA_RUN_DIR="$1" >/dev/null
    build host va va_dump va_picture make_firmware >/dev/null
}

(($#)) || set -- README.md docs/*.md
shopt -s extglob
require jq pkgconf dpkg-dev file
require_for_preset arm
configure host >/dev/null
run_dir=$(cached host VA_RUN_DIR)
enter_folder
cd "$root"
trap leave EXIT
[[ ! -f $store ]] || mv "$store" "$folder/nvram.conf"
build_host "$folder/va_info"
build/host/bin/make_firmware
export PATH=$root/build/host/bin:$PATH
blocks=0
for document; do
    check_document
done
((blocks > 0)) || die "no marked block"
say "$blocks blocks run as shown, in $SECONDS s"
