#!/usr/bin/env bash
# Builds the system and demonstrates it with separate client processes, from the start of a simulated
# phone in a temporary folder to a clean stop. The exit status is 0 if every expected event and file
# was there.
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
