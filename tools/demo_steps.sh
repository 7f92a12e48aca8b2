# shellcheck shell=bash
# The steps of the demonstration, in the order in which demo.sh runs them.
. tools/demo_lib.sh

start_phone() {
    say "A phone starts, and the service on it"
    client_says phone start
    expect_said '^peltoservice runs, process [0-9]+$'
    client setprop ro.build.version.ota V12.1
    client_says phone status
    expect_said '^service +process [0-9]+, up [0-9]+ s$' '^properties +1$'
    yields "the phone's log" "$PELTO_PHONE/run/log/main"
}

# has_all LINES NAME...: whether each name is one of the lines.
has_all() {
    local list=$'\n'$1$'\n' name
    for name in "${@:2}"; do
        [[ $list == *$'\n'$name$'\n'* ]] || return 1
    done
}

show_threads() {
    local process names deadline=$((SECONDS + timeout))
    say "The service's process has these threads"
    process=$("$pelto" phone status | sed -n 's/^service *process \([0-9]*\),.*/\1/p')
    while
        names=$(cat "/proc/$process/task/"*/comm)
        ! has_all "$names" pelto_looper kelvo_fb_pelto kelvo_audio_mic KelvoGpuMinidum KelvoDmesgThrea
    do
        [ "$SECONDS" -lt "$deadline" ] || fail "a thread is missing among: ${names//$'\n'/ }"
    done
    note "$(sort -u <<<"$names" | paste -sd ' ')"
}

start_watcher() {
    say "A process watches: it registers a native client with the service"
    watch
    yields "what the watcher received" "$work/watched"
}

show_test_event() {
    say "An event from one process reaches a listener inside the service"
    client send pelto_event_for_test value0:7,value1:8,string0:hello,string1:phone
    expect_logged EventTest 'value0:7 value1:8 string0:hello string1:phone$'
}

show_reply() {
    say "A listener answers an event with another one, which the watcher receives"
    client send pelto_event_for_test_to_native value0:2,value1:3,string0:event_to_native
    expect_watched "pelto_event_for_test_from_native \
value0:4,value1:5,string0:evetn_frome_native,string1:evetn_frome_native"
}

show_ordinary_event() {
    say "An event that no listener wants reaches the watcher all the same"
    client send audio_underrun stream:3,frames:960
    expect_watched 'audio_underrun stream:3,frames:960'
}

show_stutter() {
    local event=pelto_event_video_stutter_ext
    say "Stuttering video: while the display's state is on, one detector's reports are suppressed"
    client sf-state on
    client stutter HwuiDetect 41
    expect_logged PeltoService 'not report frameGap:41$'
    client stutter CodecDetect 42
    expect_watched "$event detectName#CodecDetect#frameGap#42" "$event detectName#HwuiDetect"
    client sf-state off
    client stutter HwuiDetect 43
    expect_watched "$event detectName#HwuiDetect#frameGap#43"
}

show_top_activity() {
    local event=pelto_event_video_update_top_activity
    say "The top activity: one update is taken, the next comes too soon"
    client top-activity 60000
    expect_watched "$event "
    client top-activity 60000
    client send after_the_second
    expect_watched 'after_the_second ' "$event"
    note "and no second update"
}

show_capture() {
    say "A capture event becomes an exception report, the tombstones are copied"
    client_says crash audioserver 'mixer thread stuck'
    expect_said '^/data/tombstones/tombstone_00$'
    client capture A0345 --logs android,kernel,tombstones --name mic_stuck
    client_says reports --follow --count 1 --timeout "$timeout"
    expect_said ' id 0x10006345  mic_stuck  android log, kernel log$'
    yields "exception report" "$PELTO_PHONE/run/reports/00000001.report"
    yields "copied tombstone" "$(on_phone /data/persist_log/wex/exception_log/tombstone_00)"
}

show_archive() {
    local information archive
    say "The log-capture steps pack the logs themselves into a dated archive"
    client kernel log 'mic: no data for 3 s'
    information=$("$pelto" capture A0345 --logs android,kernel,audio,trace --name mic_stuck --print)
    command_line pelto-capture "$information"
    archive=$("$bin/pelto-capture" "$information") || fail "no archive was made"
    client_says archives show "$archive"
    expect_said '^capture .* mic_stuck ' '_dmesg\.txt$' '_audioflinger\.txt$'
    yields "log archive" "$(on_phone "$archive")"
}

show_audio_dump() {
    say "An audio dump is started through the phone's properties"
    client audio-dump mic
    expect_logged audiodumpinfo '^wrote /'
    yields "audio dump" "$(on_phone "${logged##* }")"
}

show_kernel_reports() {
    say "The audio module and the display driver report through the kernel's channels"
    client kernel audio 1 257
    expect_watched 'event_audio_mic_status status:1'
    client kernel display 7 "fps@@30\$\$NULL\$\$scene@@game"
    expect_watched 'pelto_event_peltoserver_feedback MM_FB_EventID#7#fps#30#scene#game'
    expect_logged PeltoService '^notifySurfaceFlinger transact ret=0$'
    client_says compositor
    expect_said '^7 MM_FB_EventID#7#fps#30#scene#game$'
    echo "$said" >"$work/compositor"
    yields "the compositor's notices" "$work/compositor"
}

show_gpu_fault() {
    local archive
    say "A GPU fault becomes an archive; the clients hear of it at once"
    client gpu await
    client gpu fault --hash 5a1f0c --size 200000
    expect_watched 'pelto_event_peltoserver_feedback EventID,410,Reason,5a1f0c'
    note "the monitor pauses for 20 s between two logs: the phone's clock is moved on instead"
    client clock advance 20 --sleepers 1
    client gpu await
    archive=$("$pelto" archives list /data/kelvo/mmdump/gpu | sed -n 's/.*  //p')
    client_says archives show "$archive"
    expect_said '^gpu .* 5a1f0c  version V12\.1 '
    client_says stats
    expect_said '^101286 .* gpuMinidump$'
    yields "archive of the GPU fault" "$(on_phone "$archive")"
    yields "statistics" "$PELTO_PHONE/run/stats"
}

show_kernel_log() {
    say "The kernel's log is dumped to its file"
    client kernel log 'mic: data again'
    quietly "$pelto" logcat -s KelvoDmesgThread --until 'going to sleep' --timeout "$timeout"
    client dump-dmesg
    expect_logged KelvoDmesgThread ': dmesg -c > .*, err=0'
    yields "kernel log" "$(on_phone /data/ruvi/log/VRN/de/audioDetLog/ad_dmesg.txt)"
}

stop_phone() {
    local status=0
    say "The service stops; the watcher is told"
    client_says phone stop
    expect_said '^peltoservice stopped, process [0-9]+$'
    expect_watcher_ended
    wait "$watcher" || status=$?
    watcher=
    [ "$status" -eq 4 ] || fail "the watcher ended with $status, not with 4 for a service that ended"
    note "watcher says:     $(<"$work/farewell")"
    [ -z "$(find "$PELTO_PHONE" -type s)" ] || fail "a socket is left behind"
}
