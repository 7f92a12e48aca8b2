#!/usr/bin/env bash
# Runs every fuzzer, two at a time, starting from its seeds in fuzz/seeds/NAME; all together take
# SECONDS. An input that makes one fail is kept in BUILD_DIR/findings/.
#
#   tools/run_fuzzers.sh BUILD_DIR SECONDS
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:?a build folder} seconds=${2:?seconds for all}
at_once=2

# Without the leak check after each input, which finds what other threads are about to free, and without
# the weighing of inputs by their rare features, which takes longer than running one.
fuzz() {
    local program=$1 seconds=$2 name corpus status=0
    name=$(basename "$program")
    corpus=$(mktemp -d)
    echo "== $name"
    timeout $((seconds + 60)) "$program" -max_total_time="$seconds" -timeout=10 -detect_leaks=0 -entropic=0 \
        -print_final_stats=1 -artifact_prefix="$build/findings/$name-" \
        "$corpus" "fuzz/seeds/$name" 2>&1 || status=$?
    rm -rf "$corpus"
    return $status
}

programs=()
for program in "$build"/fuzz/*_fuzzer; do
    if [ -f "$program" ]; then programs+=("$program"); fi
done
mkdir -p "$build/findings"
# The fuzzers' phones, in memory where that is possible: most make files for each input.
if [ -w /dev/shm ]; then TMPDIR=/dev/shm; fi
TMPDIR=$(mktemp -d "${TMPDIR:-/tmp}/pelto-fuzzers-XXXXXX")
export TMPDIR PELTO_PHONE=/nonexistent
trap 'rm -rf "$TMPDIR"' EXIT

each=$((seconds * at_once / ${#programs[@]}))
failed=0 running=0
for program in "${programs[@]}"; do
    if [ "$running" -eq "$at_once" ]; then
        wait -n || failed=1
        running=$((running - 1))
    fi
    fuzz "$program" $((each > 0 ? each : 1)) >"$TMPDIR/$(basename "$program").log" &
    running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
    wait -n || failed=1
    running=$((running - 1))
done
cat "$TMPDIR"/*.log
exit $failed
