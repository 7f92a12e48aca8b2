// One poll: wait, collect events, deliver due messages, call the callbacks.
#include <android/log.h>

#include <cerrno>
#include <cstring>

#include "looper/PeltoLooper.h"
#include "looper/ShortLock.h"

namespace android {

int32_t PeltoLooper::pollOnce(int32_t timeoutMillis, int32_t* outFd, int32_t* outEvents,
                              void** outData) {
    int32_t result = 0;
    for (;;) {
        int32_t ident;
        if (nextIdentifier(outFd, outEvents, outData, &ident)) return ident;
        if (result != 0) {
            if (outFd != nullptr) *outFd = 0;
            if (outEvents != nullptr) *outEvents = 0;
            if (outData != nullptr) *outData = nullptr;
            return result;
        }
        result = pollInner(timeoutMillis);
    }
}

// Takes the next collected event of a watch without a callback; invokeCallbacks() has handled the
// others.
bool PeltoLooper::nextIdentifier(int32_t* outFd, int32_t* outEvents, void** outData,
                                 int32_t* ident) {
    while (mResponseIndex < mResponses.size()) {
        const Response& response = mResponses[mResponseIndex++];
        if (response.request.ident < 0) continue;
        if (outFd != nullptr) *outFd = response.request.fd;
        if (outEvents != nullptr) *outEvents = response.events;
        if (outData != nullptr) *outData = response.request.data;
        *ident = response.request.ident;
        return true;
    }
    return false;
}

int32_t PeltoLooper::pollAll(int32_t timeoutMillis, int32_t* outFd, int32_t* outEvents,
                             void** outData) {
    if (timeoutMillis <= 0) {
        int32_t result;
        do {
            result = pollOnce(timeoutMillis, outFd, outEvents, outData);
        } while (result == LOOPER_POLL_CALLBACK);
        return result;
    }
    const int64_t endTime = systemTime(SYSTEM_TIME_MONOTONIC) + timeoutMillis * INT64_C(1000000);
    for (;;) {
        const int32_t result = pollOnce(timeoutMillis, outFd, outEvents, outData);
        if (result != LOOPER_POLL_CALLBACK) return result;
        timeoutMillis = toMillisecondTimeoutDelay(systemTime(SYSTEM_TIME_MONOTONIC), endTime);
        if (timeoutMillis == 0) return LOOPER_POLL_TIMEOUT;
    }
}

int32_t PeltoLooper::pollInner(int32_t timeoutMillis) {
    timeoutMillis = untilNextMessage(timeoutMillis);
    mResponses.clear();
    mPolling.store(true, std::memory_order_relaxed);
    mResponseIndex = 0;

    epoll_event items[kMaxEvents] = {};
    const int count = epoll_wait(mEpollFd, items, kMaxEvents, timeoutMillis);
    const int error = errno;
    mPolling.store(false, std::memory_order_relaxed);

    ShortLock::take(mLock);
    int32_t result = collectEventsLocked(items, count, error);
    result = deliverMessagesLocked(result);
    mLock.unlock();

    return invokeCallbacks(result);
}

// The timeout, cut to when the next known message is due.
int32_t PeltoLooper::untilNextMessage(int32_t timeoutMillis) const {
    if (timeoutMillis == 0 || mNextMessageUptime == INT64_MAX) return timeoutMillis;
    const int32_t messageTimeoutMillis =
        toMillisecondTimeoutDelay(systemTime(SYSTEM_TIME_MONOTONIC), mNextMessageUptime);
    if (messageTimeoutMillis >= 0 && (timeoutMillis < 0 || messageTimeoutMillis < timeoutMillis)) {
        return messageTimeoutMillis;
    }
    return timeoutMillis;
}

int32_t PeltoLooper::collectEventsLocked(const epoll_event* items, int count, int error) {
    if (mEpollRebuildRequired) {
        // These events are from the old epoll set; descriptors that are still ready are reported
        // again.
        mEpollRebuildRequired = false;
        rebuildEpollLocked();
        return LOOPER_POLL_WAKE;
    }
    if (count < 0) {
        if (error == EINTR) return LOOPER_POLL_WAKE;
        __android_log_print(ANDROID_LOG_WARN, kTag, "Poll failed with an unexpected error: %s",
                            strerror(error));
        return LOOPER_POLL_ERROR;
    }
    if (count == 0) return LOOPER_POLL_TIMEOUT;
    for (int i = 0; i < count; ++i) collectEventLocked(items[i]);
    return LOOPER_POLL_WAKE;
}

void PeltoLooper::collectEventLocked(const epoll_event& item) {
    const int32_t fd = item.data.fd;
    const uint32_t events = item.events;
    if (fd == mWakeEventFd) {
        if ((events & EPOLLIN) != 0) {
            awoken();
        } else {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "Ignoring unexpected epoll events 0x%x on wake event fd.", events);
        }
        return;
    }
    const auto found = mRequests.find(fd);
    if (found == mRequests.end()) {
        __android_log_print(
            ANDROID_LOG_WARN, kTag,
            "Ignoring unexpected epoll events 0x%x on fd %d that is no longer registered.", events,
            fd);
        return;
    }
    pushResponse(looperEventsOf(events), found->second);
}

void PeltoLooper::pushResponse(int32_t events, const Request& request) {
    mResponses.push(Response{events, request});
}

int32_t PeltoLooper::deliverMessagesLocked(int32_t result) {
    mNextMessageUptime = INT64_MAX;
    mMessageEnvelopes.revokeLease();  // of an outer poll
    while (!mMessageEnvelopes.isEmpty()) {
        if (!firstIsDueLocked()) {
            mNextMessageUptime = mMessageEnvelopes.firstUptime();
            break;
        }
        deliverDueLocked();
        result = LOOPER_POLL_CALLBACK;
    }
    mMessageEnvelopes.shrink();
    return result;
}

// Reads the clock only when the first message is not due by the latest reading.
bool PeltoLooper::firstIsDueLocked() {
    const int64_t uptime = mMessageEnvelopes.firstUptime();
    if (uptime > mLatestReading) mLatestReading = systemTime(SYSTEM_TIME_MONOTONIC);
    return uptime <= mLatestReading;
}

// Delivers the due messages under a lease: they have left the queue, but their envelopes stay in
// use until their handlers return. A post or a removal that changes which message comes next
// revokes the lease. A handler that throws ends the process here, where its stack still shows,
// rather than leave a lease behind.
void PeltoLooper::deliverDueLocked() noexcept {
    Lease lease;
    mMessageEnvelopes.grant(mLatestReading, &lease);
    mSendingMessage = true;
    MessageEnvelope* envelope = lease.claim();  // a fresh lease gives at least one
    mLock.unlock();
    for (; envelope != nullptr; envelope = lease.claimSoon()) {
        if (envelope->handler != nullptr) envelope->handler->handleMessage(envelope->message);
        envelope->handler.clear();
    }
    ShortLock::take(mLock);
    mMessageEnvelopes.settle(&lease);
    mSendingMessage = false;
}

// Walks mResponses by index and takes each callback out before the call: a callback that polls
// replaces the list.
int32_t PeltoLooper::invokeCallbacks(int32_t result) {
    for (size_t i = 0; i < mResponses.size(); ++i) {
        if (mResponses[i].request.ident != LOOPER_POLL_CALLBACK) continue;
        const Response response = mResponses[i];
        mResponses.editItemAt(i).request.callback.clear();
        if (response.request.callback == nullptr) continue;
        const Request& request = response.request;
        if (request.callback->handleEvent(request.fd, response.events, request.data) == 0) {
            removeFd(request.fd, request.seq);
        }
        result = LOOPER_POLL_CALLBACK;
    }
    return result;
}

}  // namespace android
