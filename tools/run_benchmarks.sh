#!/usr/bin/env bash
# Runs each benchmark just long enough to see that it still works.
#
#   tools/run_benchmarks.sh BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:?a build folder}

failed=0
for program in "$build"/bench/*; do
    if [ -f "$program" ] && [ -x "$program" ]; then
        echo "== $(basename "$program")"
        timeout 120 "$program" --benchmark_min_time=0.01 || failed=1
    fi
done
exit $failed
