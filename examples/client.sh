#!/bin/sh
# usage: client.sh STREAM [DIRECTORY]
# Prints the records of one of the daemon's streams (od, vmf, fd, ta), one line each, until Ctrl-C;
# reconnects whenever the daemon is restarted. Needs socat and od.

stream=${1:?usage: client.sh STREAM [DIRECTORY]}
directory=${2:-${VA_RUN_DIR:-/tmp/va_info}}

# read_bytes COUNT: exactly so many, as decimal 32-bit words on one line; nothing at the end. With dd,
# since od would read ahead into the next record.
read_bytes() {
    dd bs=1 count="$1" 2>/dev/null | od -A n -v -t u4 | tr -s '\n ' '  '
}

# Fails when there was no record.
print_records() {
    some=1
    while length=$(read_bytes 4) && [ -n "$length" ]; do
        # shellcheck disable=SC2046,SC2086 # split on purpose: drops superfluous blanks
        echo "$stream" $(read_bytes $length)
        some=0
    done
    return $some
}

said=
while :; do
    socat -u "UNIX-CONNECT:$directory/$stream" - 2>/dev/null | print_records && said=
    [ "$said" ] || echo "client.sh: waiting for $directory/$stream" >&2
    said=yes
    sleep 1
done
