// Which looper belongs to the calling thread.
#include <android/log.h>
#include <pthread.h>

#include "looper/PeltoLooper.h"
#include "looper/log_tag.h"

namespace android {

namespace {

pthread_once_t gTLSOnce = PTHREAD_ONCE_INIT;
pthread_key_t gTLSKey = 0;

void requireTLSKey(void (*init)()) {
    if (pthread_once(&gTLSOnce, init) != 0) {
        __android_log_assert("result != 0", kLooperTag, "pthread_once failed");
    }
}

// The id under which a thread holds its looper.
const void* bindingId() {
    return &gTLSKey;
}

}  // namespace

void PeltoLooper::initTLSKey() {
    if (pthread_key_create(&gTLSKey, threadDestructor) != 0) {
        __android_log_assert("result != 0", kLooperTag, "Could not allocate TLS key.");
    }
}

void PeltoLooper::threadDestructor(void* looper) {
    if (looper != nullptr) static_cast<PeltoLooper*>(looper)->decStrong(bindingId());
}

void PeltoLooper::setForThread(const sp<PeltoLooper>& looper) {
    requireTLSKey(initTLSKey);
    auto* old = static_cast<PeltoLooper*>(pthread_getspecific(gTLSKey));
    if (looper != nullptr) looper->incStrong(bindingId());
    pthread_setspecific(gTLSKey, looper.get());
    if (old != nullptr) old->decStrong(bindingId());
}

sp<PeltoLooper> PeltoLooper::getForThread() {
    requireTLSKey(initTLSKey);
    return static_cast<PeltoLooper*>(pthread_getspecific(gTLSKey));
}

sp<PeltoLooper> PeltoLooper::prepare(int32_t opts) {
    const bool allowNonCallbacks = (opts & LOOPER_PREPARE_ALLOW_NON_CALLBACKS) != 0;
    sp<PeltoLooper> looper = getForThread();
    if (looper == nullptr) {
        looper = new PeltoLooper(allowNonCallbacks);
        setForThread(looper);
    }
    if (looper->getAllowNonCallbacks() != allowNonCallbacks) {
        __android_log_print(
            ANDROID_LOG_WARN, kLooperTag,
            "PeltoLooper already prepared for this thread with a different value for "
            "the LOOPER_PREPARE_ALLOW_NON_CALLBACKS option.");
    }
    return looper;
}

}  // namespace android
