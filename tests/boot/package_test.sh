#!/bin/bash
# usage: package_test.sh BUILD SCENE
# The Debian packages of a build whose run directory is `run`, unpacked into a root of their own; the
# daemon is started by its init script and watched by its clients.
set -euo pipefail
build=$(realpath "$1") scene=$(realpath "$2") root=$(mktemp --directory)
cd "$root"
trap 'usr/share/va/va.init stop; rm -r "$root"' EXIT
(cd "$build" && cpack -B "$root/packages")
dpkg --extract packages/va_*.deb .
[[ ! -e usr/bin/va_picture ]]
dpkg --extract packages/va-picture_*.deb .
"$build/bin/make_firmware" firmware
echo Properties.ImageSource.Sensor=imx122 >store
VA_USER=$(id -un) VA_GROUP=$(id -gn)
export VA_USER VA_GROUP VA_DAEMON=$root/usr/bin/va VA_LOG=log NVRAM_FILE=store VA_SIM_SCENE=$scene
usr/share/va/va.init start || { cat log && exit 1; }
timeout 60 usr/bin/va_dump -n 1 od
timeout 60 usr/bin/va_picture -n 1 picture.svg
grep --quiet '</svg>' picture.svg
for file in lib/systemd/system/va.service share/man/man{8/va.8,1/va_dump.1,1/va_picture.1}; do
    [[ -s usr/$file ]]
done
