// Start-up, and what is left of it at the end.
#include <android/log.h>

#include "service/PeltoService.h"
#include "service/log_tag.h"

namespace android {

PeltoService::PeltoService() {
    extendObjectLifetime(OBJECT_LIFETIME_WEAK);
    getWeakRefs()->incWeak(this);
    init();
    __android_log_print(ANDROID_LOG_DEBUG, kServiceTag, "PeltoService");
    mHeldForStartUp = true;
}

// Nothing here checks whether a component could start: the rest works without it.
void PeltoService::init() {
    mDebugLog.store(false, std::memory_order_relaxed);
    mEventTest = new EventTest();
    Mutex::Autolock lock(mLock);
    mUpdateActivityTime = 0;
}

PeltoService::~PeltoService() {
    __android_log_print(ANDROID_LOG_DEBUG, kServiceTag, "~PeltoService");
}

void PeltoService::onFirstRef() {}

void PeltoService::onLastStrongRef(const void* /*id*/) {
    if (mHeldForStartUp.exchange(false)) getWeakRefs()->decWeak(this);
}

}  // namespace android
