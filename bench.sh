#!/usr/bin/env bash
# Measures our loop beside the loops of others, in one run on this machine: installs their
# development files, builds, takes turns, prints medians and ratios. Results go to build/bench.
#
#   ./bench.sh [--quick | --repetitions N]
set -euo pipefail
cd "$(dirname "$0")"

tools/setup.sh test \
    pkg-config=pkg-config \
    /usr/include/asio.hpp=libasio-dev \
    /usr/include/uv.h=libuv1-dev \
    /usr/include/glib-2.0/glib.h=libglib2.0-dev \
    /usr/include/event2/event.h=libevent-dev
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target loop_bench >/dev/null
mkdir -p build/bench
program=$(find build/release -name loop_bench -type f -perm -u+x | head -n 1)
exec python3 bench/run.py "$program" build/bench "$@"
