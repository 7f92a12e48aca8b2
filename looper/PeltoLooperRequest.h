#pragma once

#include <sys/epoll.h>
#include <utils/RefBase.h>

#include <cstdint>

#include "looper/PeltoLooperCallback.h"

namespace android {

// The events of a descriptor, asked for and reported. Errors and hang-ups are always reported and
// need not be asked for.
enum : int32_t {
    LOOPER_EVENT_INPUT = 1,
    LOOPER_EVENT_OUTPUT = 2,
    LOOPER_EVENT_ERROR = 4,
    LOOPER_EVENT_HANGUP = 8,
};

// One watched descriptor, as addFd() asked for it.
struct Request {
    int32_t fd = -1;
    int32_t ident = 0;   // LOOPER_POLL_CALLBACK, or the caller's own, 0 or above
    int32_t events = 0;  // LOOPER_EVENT_ flags asked for
    int32_t seq = 0;     // tells a watch from a later one of the same descriptor
    sp<PeltoLooperCallback> callback;
    void* data = nullptr;

    void initEventItem(epoll_event* item) const;
};

// One event collected by a poll, with a reference of its own to the callback.
struct Response {
    int32_t events = 0;
    Request request;
};

// The sequence number after `seq`; skips -1, which removeFd() takes for any.
int32_t requestSeqAfter(int32_t seq);

// The LOOPER_EVENT_ flags for the bits that epoll reports.
int32_t looperEventsOf(uint32_t epollEvents);

}  // namespace android
