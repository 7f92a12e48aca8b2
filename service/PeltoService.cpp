#include "service/PeltoService.h"

#include <android/log.h>

#include "event/PeltoEventDisptch.h"

namespace android {

status_t PeltoService::registerNativeClient(const sp<IPeltoNativeClient>& client) {
    if (client == nullptr) return 0;
    Mutex::Autolock lock(mLock);
    // Asks for no death notification: a client is never removed.
    if (mNativeClients.indexOf(client) < 0) mNativeClients.add(client);
    return 0;
}

void PeltoService::setEvent(const String8& event, const String8& info) {
    if (debugLog()) {
        // Takes the lock for the count, so this line may wait for a slow client.
        __android_log_print(ANDROID_LOG_VERBOSE, kServiceTag,
                            "PeltoService setEvent:%s cliensCount %d", event.c_str(),
                            static_cast<int>(clientCount()));
    }
    {
        Mutex::Autolock lock(mLock);
        const size_t count = mNativeClients.size();
        for (size_t i = 0; i < count; ++i) {
            mNativeClients[i]->onNativeEvent(event.c_str(), info.c_str());
        }
    }
    PeltoEventDisptch::getInstance().setEvent(event, info);
}

size_t PeltoService::clientCount() {
    Mutex::Autolock lock(mLock);
    return mNativeClients.size();
}

void PeltoService::setEventToNative(const String8& event, const String8& info) {
    if (debugLog()) {
        __android_log_print(ANDROID_LOG_VERBOSE, kServiceTag, "setEventToNative event:%s info:%s",
                            event.c_str(), info.c_str());
    }
    PeltoEventDisptch::getInstance().setEvent(event, info);
}

void PeltoService::setDebugLog(bool debugLog) {
    mDebugLog.store(debugLog, std::memory_order_relaxed);
    PeltoEventDisptch::getInstance().setDebugLog(debugLog);
    setEvent(String8("pelto_event_audio_set_debug_log"), String8::format("%d", this->debugLog()));
    if (this->debugLog()) {
        __android_log_print(ANDROID_LOG_VERBOSE, kServiceTag, "setDebugLog %d", debugLog);
    }
}

status_t PeltoService::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                  uint32_t flags) {
    return BnPeltoService::onTransact(code, data, reply, flags);
}

void PeltoService::binderDied(const wp<IBinder>& /*who*/) {
    __android_log_print(ANDROID_LOG_DEBUG, kServiceTag, "PeltoService Died");
}

}  // namespace android
