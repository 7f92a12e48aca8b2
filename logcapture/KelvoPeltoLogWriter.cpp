#include "logcapture/KelvoPeltoLogWriter.h"

#include <android/log.h>

#include <utility>

#include "event/PeltoEvent.h"
#include "event/PeltoEventDisptch.h"
#include "logcapture/KelvoAudioDumpsysLogThread.h"
#include "logcapture/KelvoWexRaiseException.h"

namespace android {

namespace {

constexpr char kTag[] = "KelvoPeltoLogWriter";
constexpr char kCaptureLogs[] = "pelto_event_multimedia_capture_logs";
constexpr char kAudioDumpsys[] = "pelto_event_multimedia_audio_dumpsys";

}  // namespace

KelvoPeltoLogWriter::KelvoPeltoLogWriter() {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "KelvoPeltoLogWriter()");
    registerEventLister();
}

KelvoPeltoLogWriter::~KelvoPeltoLogWriter() {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "~KelvoPeltoLogWriter()");
}

void KelvoPeltoLogWriter::registerEventLister() {
    mEventTypes.add(kCaptureLogs);
    mEventTypes.add(kAudioDumpsys);
    mName = "KelvoPeltoLogWriter";
    PeltoEventDisptch::getInstance().registerEventListener(this);
}

void KelvoPeltoLogWriter::handleEvent(std::string event) {
    const sp<PeltoEvent> record = new PeltoEvent(std::move(event));
    const std::string type = record->getEventType();
    const std::string info = record->getEventInfo();
    if (type == kCaptureLogs) caputureLogs(String8(info.c_str()));
    if (type == kAudioDumpsys) dumpsysAudioInfo(String8(info.c_str()));
}

// Both actions release their worker object before the lock.
void KelvoPeltoLogWriter::caputureLogs(const String8& info) {
    Mutex::Autolock lock(mLock);
    const sp<KelvoWexRaiseException> reporter = new KelvoWexRaiseException(info);
    if (reporter->WexRaiseException() != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "error, WexRaiseException failed");
    }
}

void KelvoPeltoLogWriter::dumpsysAudioInfo(const String8& info) {
    Mutex::Autolock lock(mLock);
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "dumpsysAudioInfo");
    const sp<KelvoAudioDumpsysLogThread> thread = new KelvoAudioDumpsysLogThread(info);
    if (const status_t status = thread->start("pelto_dump", 0, 0)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "cannot start audio dumpsys thread, error:%d",
                            status);
    }
}

}  // namespace android
