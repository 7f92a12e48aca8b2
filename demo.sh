#!/usr/bin/env bash
# Shows the system at work: builds it, starts a simulated phone with the service in a temporary
# folder, and sends events from one process that others receive. Ends by itself; the exit status
# is 0 if everything expected has arrived.
set -euo pipefail
cd "$(dirname "$0")"

preset=release
patience=30 # seconds for what must arrive
pelto=build/$preset/bin/pelto
work=
watcher=
shown=()

say() {
    printf '\n== %s\n' "$*"
}

fail() {
    echo "demo.sh: $*" >&2
    exit 1
}

# Runs a command; its output is shown only when it fails.
quietly() {
    local log=$work/output
    "$@" >"$log" 2>&1 </dev/null || { tail -n 40 "$log" >&2 && fail "'$*' failed"; }
}

build() {
    say "Building (the first time takes a few minutes)"
    tools/setup.sh test
    quietly cmake --preset "$preset"
    quietly cmake --build --preset "$preset" -j "$(nproc)" --target pelto peltoserviced
}

begin() {
    work=$(mktemp -d -t pelto-demo-XXXXXX)
    trap finish EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
    export PELTO_PHONE=$work/phone
}

finish() {
    local status=$?
    trap - EXIT
    set +e
    [ -z "$watcher" ] || kill "$watcher" 2>/dev/null
    [ ! -d "$work/phone" ] || "$pelto" phone stop >/dev/null
    rm -rf "$work"
    exit "$status"
}

# Another process sends an event.
send() {
    echo "   \$ pelto send $*"
    "$pelto" send "$@" || fail "the service did not accept '$*'"
}

# The watcher receives this, perhaps after others.
expect_watched() {
    local line
    while read -r -t "$patience" -u "$events" line; do
        if [ "$line" = "$1" ]; then
            echo "   watcher received: $line"
            return
        fi
    done
    fail "the watcher did not receive '$1'"
}

# A line under that tag whose message matches the expression is logged.
expect_logged() {
    local lines
    lines=$("$pelto" logcat -s "$1" --until "$2" --timeout "$patience") ||
        fail "the phone's log has no line '$2' of $1"
    echo "   phone's log:      ${lines##*$'\n'}"
}

start_phone() {
    say "A phone starts, and the service on it"
    "$pelto" phone start || fail "the phone did not start"
    "$pelto" phone status
    shown+=("a simulated phone with the service running on it")
}

start_watcher() {
    say "A process watches: it registers a native client with the service"
    mkfifo "$work/events" "$work/ready"
    "$pelto" watch --ready-fd 3 >"$work/events" 3>"$work/ready" &
    watcher=$!
    exec {events}<"$work/events"
    read -r -t "$patience" <"$work/ready" || fail "the watcher is not up"
    echo "   \$ pelto watch        (process $watcher)"
}

show_test_event() {
    say "An event from one process reaches a listener inside the service"
    send pelto_event_for_test value0:7,value1:8,string0:hello,string1:phone
    expect_logged EventTest 'value0:7 value1:8 string0:hello string1:phone$'
    shown+=("a test event logged by the test listener")
}

show_reply() {
    say "A listener answers an event with another one, which the watcher receives"
    send pelto_event_for_test_to_native value0:2,value1:3,string0:event_to_native
    expect_watched "pelto_event_for_test_from_native \
value0:4,value1:5,string0:evetn_frome_native,string1:evetn_frome_native"
    shown+=("the test event to native answered by the reply event")
}

show_ordinary_event() {
    say "An event that no listener wants reaches the watcher all the same"
    send audio_underrun stream:3,frames:960
    expect_watched 'audio_underrun stream:3,frames:960'
    shown+=("an ordinary event received by a native client of another process")
}

stop_phone() {
    local status=0
    say "The service stops; the watcher is told"
    "$pelto" phone stop || fail "the service did not stop"
    wait "$watcher" || status=$?
    watcher=
    [ "$status" -eq 4 ] || fail "the watcher ended with $status, not with 4 for a service that ended"
    shown+=("a clean stop")
}

sum_up() {
    say "Shown"
    printf '   %s\n' "${shown[@]}"
}

begin
build
start_phone
start_watcher
show_test_event
show_reply
show_ordinary_event
stop_phone
sum_up
