# SPDX-License-Identifier: LGPL-2.1-or-later
# Packages of Debian 12 that the scripts ./run, ./test, release/run and bench/peers/run need; sourced by all.

packages_to_build=(build-essential cmake ninja-build pkg-config libglib2.0-dev dvb-apps
                   nlohmann-json3-dev libcli11-dev)
packages_to_test=("${packages_to_build[@]}" libgtest-dev libgmock-dev libbenchmark-dev
                  clang libclang-rt-14-dev mold python3 abigail-tools doxygen groff-base)
packages_to_release=("${packages_to_test[@]}" gcovr valgrind)
declare -A packages_to_cross=([i386]='g++-i686-linux-gnu' [armhf]='g++-arm-linux-gnueabihf qemu-user')
packages_of_peers=(libdvbpsi-dev libdvbv5-dev libgstreamer-plugins-bad1.0-dev gstreamer1.0-plugins-bad)
packages_to_package=("${packages_to_build[@]}" debhelper lintian)

say() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
}

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# install_missing PACKAGE...: installs those that are not there, with apt as root or through sudo.
install_missing() {
    local missing=() package as_root=()
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            say "install as root: apt-get install ${missing[*]}"
            return 1
        fi
        as_root=(sudo)
    fi
    say "installing ${missing[*]}"
    "${as_root[@]}" apt-get update -qq >&2 &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}
