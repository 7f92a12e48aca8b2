// Construction, binding to a thread, waking and posting.
#include "looper/PeltoLooper.h"

#include <android/log.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "looper/ShortLock.h"

namespace android {

namespace {

pthread_once_t gTLSOnce = PTHREAD_ONCE_INIT;
pthread_key_t gTLSKey = 0;

// The id that incStrong() and decStrong() get for a thread's reference to its looper: any fixed
// address.
const void* threadReferenceId() {
    return &gTLSKey;
}

}  // namespace

PeltoLooper::PeltoLooper(bool allowNonCallbacks)
    : mAllowNonCallbacks(allowNonCallbacks), mWakeEventFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (mWakeEventFd < 0) {
        __android_log_assert("mWakeEventFd < 0", kTag, "Could not make wake event fd: %s",
                             strerror(errno));
    }
    Mutex::Autolock lock(mLock);
    rebuildEpollLocked();
}

PeltoLooper::~PeltoLooper() {
    close(mWakeEventFd);
    mWakeEventFd = -1;
    if (mEpollFd >= 0) close(mEpollFd);
}

void PeltoLooper::initTLSKey() {
    if (pthread_key_create(&gTLSKey, threadDestructor) != 0) {
        __android_log_assert("result != 0", kTag, "Could not allocate TLS key.");
    }
}

void PeltoLooper::requireTLSKey() {
    if (pthread_once(&gTLSOnce, initTLSKey) != 0) {
        __android_log_assert("result != 0", kTag, "pthread_once failed");
    }
}

void PeltoLooper::threadDestructor(void* looper) {
    if (looper != nullptr) static_cast<PeltoLooper*>(looper)->decStrong(threadReferenceId());
}

void PeltoLooper::setForThread(const sp<PeltoLooper>& looper) {
    requireTLSKey();
    auto* old = static_cast<PeltoLooper*>(pthread_getspecific(gTLSKey));
    if (looper != nullptr) looper->incStrong(threadReferenceId());
    pthread_setspecific(gTLSKey, looper.get());
    if (old != nullptr) old->decStrong(threadReferenceId());
}

sp<PeltoLooper> PeltoLooper::getForThread() {
    requireTLSKey();
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
            ANDROID_LOG_WARN, kTag,
            "PeltoLooper already prepared for this thread with a different value for "
            "the LOOPER_PREPARE_ALLOW_NON_CALLBACKS option.");
    }
    return looper;
}

void PeltoLooper::wake() {
    const uint64_t one = 1;
    ssize_t written;
    do {
        written = write(mWakeEventFd, &one, sizeof one);
    } while (written == -1 && errno == EINTR);
    // EAGAIN: the counter is full, so a wake is already pending.
    if (written != sizeof one && errno != EAGAIN) {
        __android_log_assert(nullptr, kTag, "Could not write wake signal to fd %d: %s",
                             mWakeEventFd, strerror(errno));
    }
}

void PeltoLooper::awoken() {
    uint64_t counter = 0;
    ssize_t got;
    do {
        got = read(mWakeEventFd, &counter, sizeof counter);
    } while (got == -1 && errno == EINTR);
}

void PeltoLooper::sendMessage(const sp<PeltoMessageHandler>& handler, const PeltoMessage& message) {
    const int64_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    enqueue(now, now, handler, message);
}

void PeltoLooper::sendMessageDelayed(int64_t uptimeDelay, const sp<PeltoMessageHandler>& handler,
                                     const PeltoMessage& message) {
    const int64_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    const auto uptime =
        static_cast<int64_t>(static_cast<uint64_t>(now) + static_cast<uint64_t>(uptimeDelay));
    enqueue(uptime, now, handler, message);
}

void PeltoLooper::sendMessageAtTime(int64_t uptime, const sp<PeltoMessageHandler>& handler,
                                    const PeltoMessage& message) {
    enqueue(uptime, INT64_MIN, handler, message);
}

void PeltoLooper::enqueue(int64_t uptime, int64_t latestReading,
                          const sp<PeltoMessageHandler>& handler, const PeltoMessage& message) {
    bool sendWake;
    {
        const ShortLock lock(mLock);
        if (latestReading > mLatestReading) mLatestReading = latestReading;
        const bool first = mMessageEnvelopes.insert(uptime, mLatestReading, handler, message);
        // A looper that runs a handler checks the queue again before it sleeps.
        sendWake = first && !mSendingMessage;
    }
    if (sendWake) wake();
}

void PeltoLooper::removeMessages(const sp<PeltoMessageHandler>& handler) {
    Mutex::Autolock lock(mLock);
    mMessageEnvelopes.remove(handler);
}

void PeltoLooper::removeMessages(const sp<PeltoMessageHandler>& handler, int32_t what) {
    Mutex::Autolock lock(mLock);
    mMessageEnvelopes.remove(handler, what);
}

}  // namespace android
