#include "event/PeltoEventDisptch.h"

#include <android/log.h>
#include <utils/Timers.h>

#include <cstring>

#include "event/PeltoEvent.h"

namespace android {

ANDROID_SINGLETON_STATIC_INSTANCE(PeltoEventDisptch)

namespace {

constexpr char kTag[] = "PeltoEventDisptch";
constexpr int32_t PELTO_MSG_EVENT = 0;
constexpr int64_t kListenerBudgetMicros = 500;

int64_t microsRoundedUp(int64_t elapsed) {
    return (elapsed + 999) / 1000;
}

std::string joined(const String8& event, const String8& info) {
    std::string text(event.c_str(), event.length());
    text += '$';
    return text.append(info.c_str(), info.length());
}

}  // namespace

PeltoEventDisptch::PeltoEventDisptch() {
    mHandlerThread = new HandlerThread();
    const status_t status = mHandlerThread->start("pelto_looper", 0, 0);
    if (status != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "cannot start handler thread, error:%d",
                            status);
        return;
    }
    mLooper = mHandlerThread->getLooper();
    mHandler = this;
}

void PeltoEventDisptch::registerEventListener(const sp<EventListener>& listener) {
    Mutex::Autolock lock(mLock);
    mEventListeners.add(listener);
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "registerEventListener mEventListeners size %d",
                        static_cast<int>(mEventListeners.size()));
}

void PeltoEventDisptch::unRegisterEventListener(void (* /*listener*/)(std::string)) {
    Mutex::Autolock lock(mLock);
}

void PeltoEventDisptch::setEvent(String8 event, String8 info) {
    if (debugLog()) {
        __android_log_print(ANDROID_LOG_VERBOSE, kTag, "setEvent event %s ",
                            joined(event, info).c_str());
    }
    PeltoMessage message = {};
    message.what = PELTO_MSG_EVENT;
    // A text that does not fit is sent as an empty one, never cut.
    if (event.length() + 1 + info.length() < sizeof message.sValue) {
        memcpy(message.sValue, event.c_str(), event.length());
        message.sValue[event.length()] = '$';
        memcpy(message.sValue + event.length() + 1, info.c_str(), info.length());
    }
    if (mLooper != nullptr) mLooper->sendMessage(mHandler, message);
}

void PeltoEventDisptch::handleMessage(const PeltoMessage& message) {
    const size_t length = strnlen(message.sValue, sizeof message.sValue);
    if (debugLog()) {
        __android_log_print(ANDROID_LOG_VERBOSE, kTag, "handleMessage what:%d sValue %.*s",
                            message.what, static_cast<int>(length), message.sValue);
    }
    if (message.what != PELTO_MSG_EVENT) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Unknown message: %d", message.what);
        return;
    }
    dispatchEvent(std::string(message.sValue, length));
}

void PeltoEventDisptch::dispatchEvent(std::string event) {
    if (debugLog()) {
        __android_log_print(ANDROID_LOG_VERBOSE, kTag, "dispatchEvent event %s", event.c_str());
    }
    Mutex::Autolock lock(mLock);
    const sp<PeltoEvent> record = new PeltoEvent(event);
    const std::string type = record->getEventType();
    if (debugLog()) {
        __android_log_print(ANDROID_LOG_VERBOSE, kTag, "dispatchEvent eventType %s", type.c_str());
    }
    if (mEventListeners.isEmpty()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "EventListener is empty!");
    }
    for (size_t i = 0; i < mEventListeners.size(); ++i) {
        const sp<EventListener>& listener = mEventListeners[i];
        if (listener != nullptr) offerLocked(*listener, type, event);
    }
}

// Calls a listener once, even if it lists the type several times.
void PeltoEventDisptch::offerLocked(EventListener& listener, const std::string& type,
                                    const std::string& event) {
    if (listener.mEventTypes.isEmpty()) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "eventTypes is empty!");
        return;
    }
    for (size_t i = 0; i < listener.mEventTypes.size(); ++i) {
        if (listener.mEventTypes[i] == type) return callLocked(listener, type, event);
    }
}

void PeltoEventDisptch::callLocked(EventListener& listener, const std::string& type,
                                   const std::string& event) {
    if (debugLog()) {
        __android_log_print(ANDROID_LOG_VERBOSE, kTag, "dispatchEvent callback name:%s event %s",
                            listener.mName.c_str(), type.c_str());
    }
    const int64_t before = systemTime(SYSTEM_TIME_MONOTONIC);
    listener.handleEvent(event);
    const int64_t micros = microsRoundedUp(systemTime(SYSTEM_TIME_MONOTONIC) - before);
    if (micros > kListenerBudgetMicros) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s: %s took %lldus to handleEvent:%s",
                            "dispatchEvent", listener.mName.c_str(), static_cast<long long>(micros),
                            type.c_str());
    }
}

void PeltoEventDisptch::setDebugLog(bool debugLog) {
    __android_log_print(ANDROID_LOG_DEBUG, kTag, "debugLog %d", debugLog);
    mDebugLog.store(debugLog, std::memory_order_relaxed);
    if (debugLog) __android_log_print(ANDROID_LOG_VERBOSE, kTag, "setDebugLog %d", debugLog);
}

}  // namespace android
