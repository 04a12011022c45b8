# shellcheck shell=bash
# Sourced by the other scripts: where the tree is, what must be installed, how a preset is built, and
# the option --help, which prints the comment at the head of the script.

usage() {
    sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$script"
}

usage_error() {
    usage >&2
    exit 2
}

script=$(realpath "$0")
for argument; do
    case $argument in
    -h | --help)
        usage
        exit
        ;;
    esac
done

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)
export CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-$jobs}
export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-$jobs}

base_packages=(g++ cmake ninja-build googletest nlohmann-json3-dev)
bench_packages=(libbenchmark-dev libevent-dev pkg-config)
# shellcheck disable=SC2034 # of scripts that build with VA_MQTT
mqtt_packages=(libmosquitto-dev)
# shellcheck disable=SC2034 # of scripts that boot the emulated camera
camera_packages=(g++-arm-linux-gnueabihf qemu-system-arm qemu-user qemu-user-static mmdebstrap arch-test e2fsprogs
    cpio libmosquitto-dev mosquitto mosquitto-clients socat iproute2)
# shellcheck disable=SC2034 # of scripts that build with VA_VIDEO
video_packages=(libopencv-{core,imgcodecs,imgproc,objdetect,video,videoio}-dev libavutil-dev opencv-data)

say() {
    printf '%s: %s\n' "${0##*/}" "$*"
}

die() {
    say "$@" >&2
    exit 1
}

is_installed() {
    [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# as_root COMMAND...: as root, or through sudo when it needs no password or can ask for one.
as_root() {
    if ((EUID == 0)); then
        "$@"
    elif [[ -t 0 ]]; then
        sudo "$@"
    else
        sudo --non-interactive "$@"
    fi
}

# No two at a time, where scripts run side by side.
apt_install() {
    mkdir -p "$root/build"
    {
        flock 9
        as_root apt-get update &&
            as_root env DEBIAN_FRONTEND=noninteractive apt-get install --yes --no-remove \
                --no-install-recommends "$@"
    } 9>"$root/build/apt.lock"
}

# require PACKAGE...: installs the Debian packages that are missing.
require() {
    local package missing=()
    command -v dpkg-query >/dev/null || {
        say "not a Debian system; needed here: $*"
        return
    }
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    ((${#missing[@]})) || return 0
    say "installing ${missing[*]}"
    apt_install "${missing[@]}" ||
        die "could not install; run as root: apt-get update && apt-get install ${missing[*]}"
}

# video_source ARGUMENT: a URL or a device as it stands, of a file the whole path.
video_source() {
    if [[ $1 == *://* || $1 == /dev/* ]]; then
        echo "$1"
    else
        [[ -e $1 ]] || die "there is no $1"
        realpath -- "$1"
    fi
}

require_for_preset() {
    case $1 in
    arm) require "${base_packages[@]}" g++-arm-linux-gnueabihf qemu-user ;;
    clang | fuzz) require "${base_packages[@]}" clang ;;
    bench) require "${base_packages[@]}" "${bench_packages[@]}" ;;
    *) require "${base_packages[@]}" ;;
    esac
}

# configure PRESET [CMAKE-OPTION...]
configure() {
    require_for_preset "$1"
    cmake --preset "$@"
}

# build PRESET [TARGET...]
build() {
    local preset=$1
    shift
    if (($#)); then
        cmake --build --preset "$preset" --target "$@"
    else
        cmake --build --preset "$preset"
    fi
}

# cached PRESET NAME: a setting of the configured build.
cached() {
    sed -n "s/^$2:[^=]*=//p" "$root/build/$1/CMakeCache.txt"
}

cd "$root" || exit
