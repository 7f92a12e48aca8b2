# shellcheck shell=bash
# Functions for the steps of the demonstration. Sourced by demo_steps.sh.

# use_preset NAME: runs the programs of that preset.
use_preset() {
    preset=$1
    bin=build/$preset/bin
    pelto=$bin/pelto
}

use_preset release
timeout=30 # seconds for what must arrive
keep=no
work=
watcher=
events=
said=       # by the client, most recently
produced=() # "WHAT|FILE"

say() {
    printf '\n== %s\n' "$*"
}

note() {
    printf '   %s\n' "$@"
}

fail() {
    echo "demo.sh: $*" >&2
    exit 1
}

# Runs a command; shows its output only when it fails.
quietly() {
    local log=$work/output
    "$@" >"$log" 2>&1 </dev/null || { tail -n 40 "$log" >&2 && fail "'$*' failed"; }
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
    [ "$keep" = yes ] || rm -rf "$work"
    exit "$status"
}

# Prints a command line as it could be typed.
command_line() {
    local text='' word
    for word in "$@"; do
        if [[ $word =~ ^[[:alnum:]_./,:=@%+-]+$ ]]; then text+=" $word"; else text+=" ${word@Q}"; fi
    done
    note "\$$text"
}

# Shows the command line of the client and runs it.
client() {
    command_line pelto "$@"
    "$pelto" "$@" || fail "'pelto $*' failed with $?"
}

# The same for a verb with output, which is indented and kept in $said.
client_says() {
    local lines
    command_line pelto "$@"
    said=$("$pelto" "$@") || fail "'pelto $*' failed"
    mapfile -t lines <<<"$said"
    printf '     %s\n' "${lines[@]}"
}

# expect_said REGEX...: fails unless the output of the last client_says matches each.
expect_said() {
    local expected
    for expected in "$@"; do
        grep -qE -e "$expected" <<<"$said" || fail "no '$expected' in: $said"
    done
}

# Starts the watcher in the background; its output is read from descriptor $events.
watch() {
    mkfifo "$work/events" "$work/ready"
    "$pelto" watch --ready-fd 3 >"$work/events" 2>"$work/farewell" 3>"$work/ready" &
    watcher=$!
    exec {events}<"$work/events"
    read -r -t "$timeout" <"$work/ready" || fail "the watcher is not up"
    note "\$ pelto watch        (process $watcher)"
}

# expect_watched LINE [START]: waits until the watcher receives the line. Fails when an earlier line
# begins with START.
expect_watched() {
    local line
    while IFS= read -r -t "$timeout" -u "$events" line; do
        printf '%s\n' "$line" >>"$work/watched"
        if [ "$line" = "$1" ]; then
            note "watcher received: $line"
            return
        fi
        [ -z "${2:-}" ] || [ "${line#"$2"}" = "$line" ] || fail "the watcher received '$line'"
    done
    fail "the watcher did not receive '$1'"
}

# Waits for the end of the watcher's output; its later lines are not looked at.
expect_watcher_ended() {
    local status=0
    while [ "$status" -eq 0 ]; do
        read -r -t "$timeout" -u "$events" _ || status=$?
    done
    [ "$status" -le 128 ] || fail "the watcher still runs" # what read returns at its timeout
}

# expect_logged TAG REGEX: waits for a log line of that tag whose message matches; sets $logged to it.
expect_logged() {
    logged=$("$pelto" logcat -s "$1" --until "$2" --timeout "$timeout") ||
        fail "the phone's log has no line '$2' of $1"
    logged=${logged##*$'\n'}
    note "phone's log:      $logged"
}

# yields WHAT FILE: adds a row to the closing table.
yields() {
    produced+=("$1|$2")
}

# Prints the workstation's path of a file on the phone.
on_phone() {
    echo "$PELTO_PHONE/fs$1"
}

# Prints the closing table; fails when a file is missing or empty.
sum_up() {
    local row file missing=0
    say "Produced"
    for row in "${produced[@]}"; do
        file=${row#*|}
        if [ -s "$file" ]; then
            printf '   %-28s %7d bytes  %s\n' "${row%%|*}" "$(stat -c %s "$file")" "$file"
        else
            printf '   %-28s     MISSING    %s\n' "${row%%|*}" "$file"
            missing=$((missing + 1))
        fi
    done
    [ "$missing" -eq 0 ] || fail "$missing of ${#produced[@]} are missing"
    if [ "$keep" = yes ]; then
        note '' "kept; look around with: export PELTO_PHONE=$PELTO_PHONE"
    else
        note '' "removed now; ./demo.sh --keep leaves them"
    fi
}
