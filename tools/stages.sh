# shellcheck shell=bash
# Runs named stages, prints one line for each and a sum at the end; their output goes to logs. Sourced
# by test.sh.

stage_logs=build/logs
failed_stages=()
tests_run=0
tests_failed=0
stages_began=$EPOCHREALTIME

seconds_since() {
    local tenths=$(((${EPOCHREALTIME/[.,]/} - ${1/[.,]/}) / 100000))
    echo "$((tenths / 10)).$((tenths % 10))"
}

# Adds the numbers of ctest's closing line to the sum; false when the log has no such line.
count_tests() {
    local closing failed total
    closing=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests failed out of [0-9]+$' "$1") || return 1
    read -r _ _ _ failed _ _ _ _ total <<<"$closing"
    tests_failed=$((tests_failed + failed))
    tests_run=$((tests_run + total))
}

# Counts a stage that failed without a failed test as one failed test.
count_failure() {
    local failed_before=$tests_failed
    count_tests "$1" || true
    [ "$tests_failed" -gt "$failed_before" ] && return
    tests_failed=$((tests_failed + 1))
    tests_run=$((tests_run + 1))
}

# stage NAME COMMAND...: runs the command; returns its status.
stage() {
    local name=$1 began=$EPOCHREALTIME log
    shift
    mkdir -p "$stage_logs"
    log=${name//: /-}
    log=$stage_logs/${log// /-}.log
    if "$@" >"$log" 2>&1 </dev/null; then
        count_tests "$log" || true
        printf 'ok     %7s s  %s\n' "$(seconds_since "$began")" "$name"
        return 0
    fi
    count_failure "$log"
    failed_stages+=("$name")
    printf 'FAILED %7s s  %s (%s)\n' "$(seconds_since "$began")" "$name" "$log"
    tail -n 100 "$log" | sed 's/^/    /'
    return 1
}

# Prints the failed stages and a sum in ctest's words; returns 1 if anything failed.
sum_up() {
    local name percent=100
    echo "total  $(seconds_since "$stages_began") s"
    for name in ${failed_stages[@]+"${failed_stages[@]}"}; do
        echo "failed stage: $name"
    done
    [ "$tests_run" -eq 0 ] || percent=$((100 * (tests_run - tests_failed) / tests_run))
    echo "$percent% tests passed, $tests_failed tests failed out of $tests_run"
    [ ${#failed_stages[@]} -eq 0 ]
}
