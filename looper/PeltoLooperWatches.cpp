// Descriptor watches and the epoll set they are registered in.
#include <android/log.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "looper/PeltoLooper.h"

namespace android {

namespace {
constexpr int kEpollSizeHint = 8;
}  // namespace

void Request::initEventItem(epoll_event* item) const {
    memset(item, 0, sizeof *item);
    if ((events & LOOPER_EVENT_INPUT) != 0) item->events |= EPOLLIN;
    if ((events & LOOPER_EVENT_OUTPUT) != 0) item->events |= EPOLLOUT;
    item->data.fd = fd;
}

int32_t requestSeqAfter(int32_t seq) {
    const auto next = static_cast<int32_t>(static_cast<uint32_t>(seq) + 1);
    return next == -1 ? 0 : next;
}

// EPOLLIN is 1; EPOLLOUT 4, EPOLLERR 8 and EPOLLHUP 16 are twice their looper flags.
int32_t looperEventsOf(uint32_t epollEvents) {
    return static_cast<int32_t>((epollEvents & 1) | ((epollEvents >> 1) & 14));
}

void PeltoLooper::rebuildEpollLocked() {
    if (mEpollFd >= 0) close(mEpollFd);
    mEpollFd = epoll_create(kEpollSizeHint);
    if (mEpollFd < 0) {
        __android_log_assert("mEpollFd < 0", kTag, "Could not create epoll instance: %s",
                             strerror(errno));
    }
    epoll_event item;
    memset(&item, 0, sizeof item);
    item.events = EPOLLIN;
    item.data.fd = mWakeEventFd;
    if (epoll_ctl(mEpollFd, EPOLL_CTL_ADD, mWakeEventFd, &item) != 0) {
        __android_log_assert("result != 0", kTag,
                             "Could not add wake event fd to epoll instance: %s", strerror(errno));
    }
    for (const auto& [fd, request] : mRequests) {
        request.initEventItem(&item);
        if (epoll_ctl(mEpollFd, EPOLL_CTL_ADD, fd, &item) != 0) {
            __android_log_print(
                ANDROID_LOG_ERROR, kTag,
                "Error adding epoll events for fd %d while rebuilding epoll set: %s", fd,
                strerror(errno));
        }
    }
}

void PeltoLooper::scheduleEpollRebuildLocked() {
    if (mEpollRebuildRequired) return;
    mEpollRebuildRequired = true;
    wake();
}

int32_t PeltoLooper::addFd(int32_t fd, int32_t ident, int32_t events,
                           PeltoLooperCallbackFunction callback, void* data) {
    sp<PeltoLooperCallback> wrapped;
    if (callback != nullptr) wrapped = new PeltoSimpleLooperCallback(callback);
    return addFd(fd, ident, events, wrapped, data);
}

int32_t PeltoLooper::addFd(int32_t fd, int32_t ident, int32_t events,
                           const sp<PeltoLooperCallback>& callback, void* data) {
    if (callback != nullptr) {
        ident = LOOPER_POLL_CALLBACK;
    } else if (!mAllowNonCallbacks) {
        __android_log_print(
            ANDROID_LOG_ERROR, kTag,
            "Invalid attempt to set NULL callback but not allowed for this looper.");
        return -1;
    } else if (ident < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "Invalid attempt to set NULL callback with ident < 0.");
        return -1;
    }

    Request request{fd, ident, events, 0, callback, data};
    Mutex::Autolock lock(mLock);
    request.seq = mNextRequestSeq;
    mNextRequestSeq = requestSeqAfter(mNextRequestSeq);
    const auto found = mRequests.find(fd);
    if (found != mRequests.end()) return updateWatchLocked(found->second, request);

    epoll_event item;
    request.initEventItem(&item);
    if (epoll_ctl(mEpollFd, EPOLL_CTL_ADD, fd, &item) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "Error adding epoll events for fd %d: %s", fd,
                            strerror(errno));
        return -1;
    }
    mRequests.emplace(fd, request);
    return 1;
}

// Leaves the old watch in `request`, so that its callback is released without the lock.
int32_t PeltoLooper::updateWatchLocked(Request& current, Request& request) {
    epoll_event item;
    request.initEventItem(&item);
    if (epoll_ctl(mEpollFd, EPOLL_CTL_MOD, request.fd, &item) != 0) {
        if (errno != ENOENT) {
            __android_log_print(ANDROID_LOG_ERROR, kTag,
                                "Error modifying epoll events for fd %d: %s", request.fd,
                                strerror(errno));
            return -1;
        }
        // The old descriptor was closed without being removed and its number is in use again.
        if (epoll_ctl(mEpollFd, EPOLL_CTL_ADD, request.fd, &item) != 0) {
            __android_log_print(ANDROID_LOG_ERROR, kTag,
                                "Error modifying or adding epoll events for fd %d: %s", request.fd,
                                strerror(errno));
            return -1;
        }
        scheduleEpollRebuildLocked();
    }
    std::swap(current, request);
    return 1;
}

int32_t PeltoLooper::removeFd(int32_t fd) {
    return removeFd(fd, -1);
}

int32_t PeltoLooper::removeFd(int32_t fd, int32_t seq) {
    sp<PeltoLooperCallback> callback;  // released without the lock: it may be the last reference
    Mutex::Autolock lock(mLock);
    const auto found = mRequests.find(fd);
    if (found == mRequests.end()) return 0;
    // The watch the caller saw may have been replaced since.
    if (seq != -1 && found->second.seq != seq) return 0;
    callback = found->second.callback;
    mRequests.erase(found);
    if (epoll_ctl(mEpollFd, EPOLL_CTL_DEL, fd, nullptr) == 0) return 1;
    if (seq != -1 && (errno == EBADF || errno == ENOENT)) {
        // The callback closed its descriptor before it ended its watch.
        scheduleEpollRebuildLocked();
        return 1;
    }
    __android_log_print(ANDROID_LOG_ERROR, kTag, "Error removing epoll events for fd %d: %s", fd,
                        strerror(errno));
    scheduleEpollRebuildLocked();
    return -1;
}

}  // namespace android
