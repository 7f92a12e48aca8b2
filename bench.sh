#!/usr/bin/env bash
# Measures our loop and the loops of other libraries by turns, then the service. Installs what that
# needs, builds, and prints medians, ratios and goals. Results go to build/bench.
#
#   ./bench.sh [--quick | --repetitions N]
set -euo pipefail
cd "$(dirname "$0")"

case ${1:-} in
    --help | -h) sed -n '2,7s/^# \{0,1\}//p' bench.sh && exit ;;
esac

tools/setup.sh test \
    arm-linux-gnueabihf-g++=g++-arm-linux-gnueabihf \
    /usr/include/asio.hpp=libasio-dev \
    /usr/include/uv.h=libuv1-dev \
    /usr/include/glib-2.0/glib.h=libglib2.0-dev \
    /usr/include/event2/event.h=libevent-dev

build() {
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" -j "$(nproc)" "${@:2}" >/dev/null
}

build release --target loop_bench service_bench peltoserviced
build phone-arm32
mkdir -p build/bench
exec python3 -B bench/run.py build/release/bin build/phone-arm32/libpeltoservice.stripped.so \
    build/bench "$@"
