#!/usr/bin/env bash
# Runs each fuzzer for SECONDS, starting from its seeds in fuzz/seeds/NAME. An input that makes one
# fail is kept in BUILD_DIR/findings/.
#
#   tools/run_fuzzers.sh BUILD_DIR SECONDS
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:?a build folder} seconds=${2:?seconds for each}

fuzz() {
    local name corpus folders status=0
    name=$(basename "$1")
    corpus=$(mktemp -d)
    folders=("$corpus")
    [ ! -d "fuzz/seeds/$name" ] || folders+=("fuzz/seeds/$name")
    echo "== $name"
    timeout $((seconds + 60)) "$1" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
        -artifact_prefix="$build/findings/$name-" "${folders[@]}" || status=$?
    rm -rf "$corpus"
    return $status
}

mkdir -p "$build/findings"
# All at once, since each mostly waits for its phone.
running=()
for program in "$build"/fuzz/*; do
    if [ -f "$program" ] && [ -x "$program" ]; then
        fuzz "$program" &
        running+=($!)
    fi
done
failed=0
for pid in "${running[@]}"; do wait "$pid" || failed=1; done
exit $failed
