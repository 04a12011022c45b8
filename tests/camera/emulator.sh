# shellcheck shell=bash
# Sourced by what boots an emulated camera, in the folder of its image.

network=(-nic none)
console=stdio

# emulated DATA [WORD...]: sets `camera` to the command of a camera whose kernel is given these words, which
# ends when it is turned off, or its kernel panics. 64 MB, one core, the clock in 1970; what it writes to
# its root file system is forgotten. Other programs wait for it: on the camera, time goes on.
emulated() {
    # shellcheck disable=SC2034
    camera=(nice -n -10 qemu-system-arm -M "virt,highmem=off" -cpu cortex-a7 -m 64 -nodefaults -display none -no-reboot
        -rtc base=1970-01-01T00:01:00 -serial "$console" "${network[@]}"
        -kernel kernel -initrd initrd -append "console=ttyAMA0 quiet panic=-1 ${*:2}"
        -drive "if=none,id=flash,file=flash,format=raw,snapshot=on" -drive "if=none,id=data,file=$1,format=raw"
        -device "virtio-blk-device,drive=data" -device "virtio-blk-device,drive=flash") # the last is vda
}

# rows: of a console, the lines of the steps, and below a failed one what it has said.
rows() {
    sed --unbuffered --quiet --regexp-extended 's/\r$//; /^([a-z]+ +(passed|FAILED|not tried) |    )/p'
}

# row STEP VERDICT TEXT: as those of the steps on the camera.
row() {
    printf '%-10s %-10s %s\n' "$@"
}

# wait_until SECONDS COMMAND...
wait_until() {
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < end)) || return 1
        sleep 0.2
    done
}

# new_data NAME: an empty partition for data.
new_data() {
    cp --sparse=always data "$1"
}
