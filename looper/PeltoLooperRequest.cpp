#include "looper/PeltoLooperRequest.h"

#include <cstring>

namespace android {

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

}  // namespace android
