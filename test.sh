#!/usr/bin/env bash
# Installs what is missing, builds, and runs the tests.
set -euo pipefail
cd "$(dirname "$0")"

usage() {
    cat <<'TEXT'
usage: ./test.sh [--all | --preset NAME] [-R REGEX]

  (no option)     build the preset dev and run its tests and source checks
  --preset NAME   the same for another preset of CMakePresets.json
  --all           every preset: sanitizers, 32-bit ARM under emulation, the phone's own
                  build; the demo; format, lint, the daemon's memory, a short run of each
                  fuzzer and benchmark
  -R REGEX        only the tests whose names match, as ctest takes it
  --help          this text

Builds and logs go to build/. The last line sums up the tests of all presets.
TEXT
}

refuse() {
    echo "test.sh: $*" >&2
    usage >&2
    exit 2
}

parse() {
    all=no preset=dev regex=
    while [ $# -gt 0 ]; do
        case $1 in
            --all) all=yes ;;
            --preset) [ -n "${2-}" ] || refuse '--preset takes a name'; preset=$2; shift ;;
            -R) [ -n "${2-}" ] || refuse '-R takes an expression'; regex=$2; shift ;;
            --help | -h) usage && exit ;;
            *) refuse "no option '$1'" ;;
        esac
        shift
    done
}

jobs=$(nproc)
. tools/stages.sh

build() {
    cmake --preset "$1" && cmake --build --preset "$1" -j "$jobs"
}

run_tests() {
    local options=(-j "$jobs" --no-tests=error)
    [ -z "$regex" ] || options+=(-R "$regex")
    "${@:2}" ctest --preset "$1" "${options[@]}"
}

# The thread sanitizer cannot handle every randomised address layout; some containers do not let a
# process switch randomisation off.
steady_addresses() {
    if setarch -R true 2>/dev/null; then setarch -R "$@"; else "$@"; fi
}

tests_of() {
    case $1 in
        phone-*) echo "                   $(wc -c <"build/$1/libpeltoservice.stripped.so") bytes, stripped" ;;
        tsan) stage "$1: tests" run_tests "$1" steady_addresses ;;
        *) stage "$1: tests" run_tests "$1" ;;
    esac
}

memory() {
    cmake --preset release &&
        cmake --build --preset release -j "$jobs" --target peltoserviced service_bench pelto &&
        python3 -B bench/check_memory.py build/release/bin
}

preset() {
    stage "$1: build" build "$1" && tests_of "$1"
}

# Runs every stage, also after a failed one.
everything() {
    stage 'scripts' tools/check_scripts.sh || true
    stage 'format' tools/check_format.sh || true
    preset dev || true
    stage 'demo' ./demo.sh --preset dev || true
    preset phone-check || true
    preset phone-arm32 || true
    preset asan-ubsan || true
    stage 'tidy' tools/check_tidy.sh build/asan-ubsan || true
    preset tsan || true
    preset arm32 || true
    stage 'benchmarks' ./bench.sh --quick || true
    stage 'memory' memory || true
    grep -h '^the daemon' "$stage_logs/memory.log" | fold -sw 90 | sed 's/^/                   /' || true
    if stage 'fuzz: build' build fuzz; then stage 'fuzzers' tools/run_fuzzers.sh build/fuzz 90 || true; fi
}

# The level of tools/setup.sh for the chosen presets.
level() {
    if [ "$all" = no ] && [ "$preset" = dev ]; then echo test; else echo all; fi
}

main() {
    parse "$@"
    tools/setup.sh "$(level)"
    if [ "$all" = yes ]; then everything; else preset "$preset" || true; fi
    sum_up
}

main "$@"
