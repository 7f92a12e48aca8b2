#!/usr/bin/env bash
# Installs the packages that building, testing and checking need on Debian or Ubuntu.
#
#   tools/setup.sh [build|test|all] [PROBE=PACKAGE...]
#
# Each package is installed when its probe is not there. A probe with a slash is a file or a glob, one
# without is a command. Pairs on the command line are added to those of the level.
set -euo pipefail

readonly BUILD=(
    'cmake=cmake'
    'ninja=ninja-build'
    'g++=g++'
    '/usr/include/CLI/CLI.hpp=libcli11-dev'
    '/usr/include/nlohmann/json.hpp=nlohmann-json3-dev'
    '/usr/include/archive.h=libarchive-dev'
    '/usr/include/zlib.h=zlib1g-dev'
)
readonly TEST=(
    '/usr/src/googletest/CMakeLists.txt=googletest'
    'python3=python3'
    'pkg-config=pkg-config'
)
readonly ALL=(
    'clang++=clang'
    'clang-tidy=clang-tidy'
    'clang-format-14=clang-format-14'
    '/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a=libclang-rt-dev'
    'arm-linux-gnueabihf-g++=g++-arm-linux-gnueabihf'
    'qemu-arm=qemu-user'
    'shellcheck=shellcheck'
    'checkmodule=checkpolicy'
)
# Some releases do not have these; the checks that use them report when they are missing.
readonly OPTIONAL=' clang-format-14 libclang-rt-dev '

fail() {
    echo "setup: $*" >&2
    exit 1
}

pairs_of_level() {
    case $1 in
        build) printf '%s\n' "${BUILD[@]}" ;;
        test) printf '%s\n' "${BUILD[@]}" "${TEST[@]}" ;;
        all) printf '%s\n' "${BUILD[@]}" "${TEST[@]}" "${ALL[@]}" ;;
        *) fail "no level '$1': build, test or all" ;;
    esac
}

present() {
    case $1 in
        */*) compgen -G "$1" >/dev/null ;;
        *) command -v "$1" >/dev/null ;;
    esac
}

missing_packages() {
    local pair
    for pair in "$@"; do
        present "${pair%=*}" || echo "${pair##*=}"
    done
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        command -v sudo >/dev/null || fail "neither root nor sudo; install these yourself: ${wanted[*]}"
        sudo env DEBIAN_FRONTEND=noninteractive "$@"
    fi
}

# Tries three times; prints apt-get's output when all of them fail.
apt() {
    local log try
    log=$(mktemp)
    for try in 1 2 3; do
        if as_root apt-get -qq -o DPkg::Lock::Timeout=120 "$@" >"$log" 2>&1 </dev/null; then
            rm -f "$log"
            return
        fi
        [ "$try" -eq 3 ] || sleep $((try * 5))
    done
    cat "$log" >&2
    rm -f "$log"
    fail "apt-get $1 failed; wanted: ${wanted[*]}"
}

obtainable() {
    apt-cache show "$1" >/dev/null 2>&1
}

drop_unobtainable() {
    local package kept=()
    for package in "${wanted[@]}"; do
        if [[ $OPTIONAL == *" $package "* ]] && ! obtainable "$package"; then
            echo "setup: this release has no $package; going on without it" >&2
        else
            kept+=("$package")
        fi
    done
    wanted=("${kept[@]}")
}

main() {
    local level=${1:-build} pairs
    shift || true
    pairs=$(pairs_of_level "$level")
    mapfile -t pairs <<<"$pairs"
    mapfile -t wanted < <(missing_packages "${pairs[@]}" "$@")
    [ ${#wanted[@]} -gt 0 ] || return 0
    command -v apt-get >/dev/null || fail "no apt-get here; install these yourself: ${wanted[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt update
    drop_unobtainable
    [ ${#wanted[@]} -gt 0 ] || return 0
    echo "setup: installing ${wanted[*]}"
    apt install -y --no-install-recommends "${wanted[@]}"
}

main "$@"
