#include "looper/PeltoLooper.h"

#include <android/log.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "looper/ShortLock.h"
#include "looper/log_tag.h"

namespace android {

PeltoLooper::PeltoLooper(bool allowNonCallbacks)
    : mAllowNonCallbacks(allowNonCallbacks), mWakeEventFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (mWakeEventFd < 0) {
        __android_log_assert("mWakeEventFd < 0", kLooperTag, "Could not make wake event fd: %s",
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

void PeltoLooper::wake() {
    const uint64_t one = 1;
    ssize_t written;
    do {
        written = write(mWakeEventFd, &one, sizeof one);
    } while (written == -1 && errno == EINTR);
    // A saturated counter is a wake that has not been seen yet.
    if (written != sizeof one && errno != EAGAIN) {
        __android_log_assert(nullptr, kLooperTag, "Could not write wake signal to fd %d: %s",
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
        // After a handler the queue is looked at again before the looper sleeps.
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
