#!/usr/bin/env bash
# Shows the whole system at work, from the start of a simulated phone in a temporary folder to a
# clean stop: builds it, then tells one story with separate client processes. Ends by itself; the
# exit status is 0 if everything expected has arrived and lies where the closing table says.
#
#   ./demo.sh [--keep]     --keep leaves the phone's folder
set -euo pipefail
cd "$(dirname "$0")"
. tools/demo_steps.sh

build() {
    say "Building (the first time takes a few minutes)"
    tools/setup.sh test
    quietly cmake --preset "$preset"
    quietly cmake --build --preset "$preset" -j "$(nproc)" --target pelto peltoserviced pelto-capture
}

story() {
    start_phone
    show_threads
    start_watcher
    show_test_event
    show_reply
    show_ordinary_event
    show_stutter
    show_top_activity
    show_capture
    show_archive
    show_audio_dump
    show_kernel_reports
    show_gpu_fault
    show_kernel_log
    stop_phone
}

case ${1:-} in
    '') ;;
    --keep) keep=yes ;;
    --help | -h) sed -n '2,7s/^# \{0,1\}//p' demo.sh && exit ;;
    *) echo "demo.sh: takes --keep, --help or nothing" >&2 && exit 2 ;;
esac
begin
build
story
sum_up
