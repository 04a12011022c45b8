#!/usr/bin/env bash
# usage: add-cameras.sh [DIRECTORY] <LIST
# Adds cameras' accounts to the broker whose files are in DIRECTORY, default /etc/mosquitto/va. A line of
# LIST is `ACCOUNT`, whose camera has the prefix cameras/ACCOUNT, or `ACCOUNT PREFIX`, such as
# `hall-1 cameras/hall/1` or, at a centre, of a site's bridge, `site1 sites/site1`. The password goes to
# new/ACCOUNT, for the camera's /etc/va_mqtt.password; it is on no command line. The broker has to reload:
# systemctl reload mosquitto.
set -euo pipefail
umask 077

die() {
    echo "add-cameras.sh: $*" >&2
    exit 1
}

[[ $# -le 1 && ${1-} != -* ]] || {
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0" >&2
    exit 2
}
cd "${1-/etc/mosquitto/va}"
trap 'rm -f adding' EXIT
mkdir -p new
accounts=()
blocks=
while read -r account prefix; do
    [[ $account =~ ^[A-Za-z0-9-]+$ && $prefix =~ ^([A-Za-z0-9-]+(/[A-Za-z0-9-]+)*)?$ ]] ||
        die "neither ACCOUNT nor ACCOUNT PREFIX: $account $prefix"
    ! { [[ " ${accounts[*]} " == *" $account "* ]] || grep -q "^$account:" passwords-cameras; } ||
        die "$account is there already"
    accounts+=("$account")
    case $prefix in
    '') continue ;;
    sites/*) rights=("write $prefix/#") ;;
    *) rights=("readwrite $prefix/va/#" "write $prefix/onvif-mj/#" "readwrite $prefix/onvif-ej/#"
        "readwrite homeassistant/+/va_${prefix//\//_}/+/config") ;;
    esac
    blocks+=$(
        printf '\nuser %s\n' "$account"
        printf 'topic %s\n' "${rights[@]}"
    )$'\n'
done
((${#accounts[@]})) || die "the list is empty"
for account in "${accounts[@]}"; do
    openssl rand -base64 24 >"new/$account"
    printf '%s:%s\n' "$account" "$(<"new/$account")"
done >adding
mosquitto_passwd -U adding
cat adding >>passwords-cameras
printf '%s' "$blocks" >>acl-cameras
