#!/usr/bin/env bash
# Builds the system and demonstrates it with separate client processes, from the start of a simulated
# phone in a temporary folder to a clean stop. The exit status is 0 if every expected event and file
# was there.
#
#   ./demo.sh [--keep] [--preset NAME]
#
#   --keep          leaves the phone's folder
#   --preset NAME   the programs of that preset; release when not given
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

while [ $# -gt 0 ]; do
    case $1 in
        --keep) keep=yes ;;
        --preset) use_preset "${2:?--preset takes a name}" && shift ;;
        --help | -h) sed -n '2,9s/^# \{0,1\}//p' demo.sh && exit ;;
        *) echo "demo.sh: no option '$1'; see ./demo.sh --help" >&2 && exit 2 ;;
    esac
    shift
done
begin
build
story
sum_up
