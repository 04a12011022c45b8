#!/bin/bash
# usage: image.sh FOLDER [BUILD]
# Makes in FOLDER what an emulated camera boots. Without BUILD what changes seldom: `base.tar`, a Debian
# for ARM, and `kernel`; both stay if they are there. With it `initrd`, and `flash`, the root file
# system: that Debian with FOLDER/packages/0.1 installed, the files of image/ and the steps.
# For root, where programs of the image can run (binfmt_misc).
set -euo pipefail
[[ ${1-} != -h && ${1-} != --help ]] || exec sed -n '2,/^set/s/^# //p' "$0"
here=$(realpath "$(dirname "$0")")
folder=$(realpath "$1") build=${2-}
root=$folder/root

mirror=http://deb.debian.org/debian
release=bookworm
included=systemd-sysv,procps,busybox-static,libmosquitto1,libstdc++6
# What the initial file system needs to mount the flash, and a network; each after what it needs.
modules=(lib/crc16 crypto/crc32c_generic fs/mbcache fs/jbd2/jbd2 fs/ext4/ext4
    drivers/virtio/virtio_mmio drivers/block/virtio_blk
    net/core/failover drivers/net/net_failover drivers/net/virtio_net)
# What a camera does not have, and an emulated one starts slowly.
masked=(getty@.service getty-static.service serial-getty@.service modprobe@.service dev-mqueue.mount dev-hugepages.mount
    sys-kernel-{debug,tracing,config}.mount sys-fs-fuse-connections.mount systemd-{binfmt,pstore}.service
    systemd-update-utmp{,-runlevel}.service systemd-random-seed.service e2scrub_reap.service
    proc-sys-fs-binfmt_misc.automount {dpkg-db-backup,fstrim,apt-daily,apt-daily-upgrade,e2scrub_all}.timer)

make_base() {
    mmdebstrap --quiet --architectures=armhf --variant=essential --components=main --include=$included \
        --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/man/*' \
        --dpkgopt='path-exclude=/usr/share/locale/*' --dpkgopt='path-exclude=/usr/share/zoneinfo/*' \
        $release "$folder/base.part.tar" $mirror
    mv "$folder/base.part.tar" "$folder/base.tar"
}

# apt's own files stay in the folder, so that this machine's packages are not touched.
armhf_apt() {
    local state=$folder/apt
    mkdir -p "$state"/{lists,archives}/partial
    touch "$state/status"
    echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $mirror $release main" >"$state/sources.list"
    apt-get -o APT::Architecture=armhf -o APT::Architectures=armhf -o APT::Sandbox::User=root \
        -o Dir::Etc::SourceList="$state/sources.list" -o Dir::Etc::SourceParts=- \
        -o Dir::State="$state" -o Dir::State::Status="$state/status" -o Dir::Cache="$state" "$@"
}

fetch_kernel() {
    local package
    armhf_apt --quiet=2 update
    # The package of this name is empty, and depends on the newest.
    package=$(armhf_apt --quiet=2 --print-uris install linux-image-armmp |
        sed -n 's/^.* \(linux-image-[0-9][^_]*\)_.*/\1/p')
    rm -rf "$folder/linux" "$folder"/linux-image*.deb
    (cd "$folder" && armhf_apt --quiet=2 download "$package")
    dpkg-deb --extract "$folder/$package"_*.deb "$folder/linux"
    cp "$folder"/linux/boot/vmlinuz-* "$folder/kernel.part"
    mv "$folder/kernel.part" "$folder/kernel"
}

make_initrd() {
    local top=$folder/initial module
    rm -rf "$top"
    mkdir -p "$top"/{bin,modules,dev,proc,root}
    cp "$root/usr/bin/busybox" "$top/bin"
    ln -s busybox "$top/bin/sh"
    cp "$here/init" "$top/init"
    for module in "${modules[@]}"; do
        cp "$folder"/linux/lib/modules/*/kernel/"$module.ko" "$top/modules"
        echo "${module##*/}" >>"$top/modules/order"
    done
    (cd "$top" && find . | cpio --quiet --create --format=newc --owner=0:0 | gzip --fast) >"$folder/initrd"
}

install_packages() {
    cp "$folder"/packages/0.1/*.deb "$root"
    # A camera has no use for va_picture, but can run it.
    chroot "$root" sh -c 'dpkg --install /*.deb && va_picture -h && dpkg --purge va-picture' >"$folder/dpkg.log" 2>&1 ||
        { cat "$folder/dpkg.log" && exit 1; }
    rm "$root"/*.deb
}

furnish() {
    local unit
    cp -r --no-preserve=ownership "$here/image/." "$root"
    mkdir -p "$root/mnt/ubifs_fw/vanafw"
    cp -r "$here/steps" "$root/usr/share/camera"
    cp "$folder"/packages/0.1/va_*.deb "$root/usr/share/camera/old.deb"
    cp "$folder"/packages/0.2/va_*.deb "$root/usr/share/camera/new.deb"
    cp "$build/bin/make_firmware" "$root"
    chroot "$root" /make_firmware /mnt/ubifs_fw/vanafw
    rm "$root/make_firmware" "$root/etc/resolv.conf"
    ln -s /bin/busybox "$root/usr/share/camera/init"
    : >"$root/etc/machine-id"
    echo camera >"$root/etc/hostname"
    touch --date=@0 "$root/usr/lib/clock-epoch" # else systemd sets the clock to its own date
    for unit in "${masked[@]}"; do
        ln -sf /dev/null "$root/etc/systemd/system/$unit"
    done
    ln -sf /lib/systemd/system/multi-user.target "$root/etc/systemd/system/default.target"
    chroot "$root" systemctl enable --quiet va va_mqtt
    for unit in camera-steps camera-console; do
        ln -s "/lib/systemd/system/$unit.service" "$root/etc/systemd/system/multi-user.target.wants"
    done
}

make_flash() {
    rm -f "$folder/flash" "$folder/data"
    # Nothing is left to be initialised by the camera, which would write.
    mke2fs -q -t ext4 -E lazy_itable_init=0,lazy_journal_init=0 -d "$root" "$folder/flash" 256M >/dev/null
    mke2fs -q -t ext4 "$folder/data" 16M >/dev/null
}

if [[ ! $build ]]; then
    [[ -e $folder/base.tar ]] || make_base
    [[ -e $folder/kernel && -d $folder/linux ]] || fetch_kernel
    exit
fi
rm -rf "$root"
mkdir "$root"
tar --extract --file "$folder/base.tar" --directory "$root"
install_packages
furnish
make_initrd
make_flash
rm -rf "$root"
