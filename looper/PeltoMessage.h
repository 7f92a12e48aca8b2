#pragma once

#include <cstddef>
#include <cstdint>

namespace android {

// A looper's message. A plain record: senders zero it themselves, and it is always copied whole,
// never only up to the end of its text.
struct PeltoMessage {
    int32_t what;
    char sValue[1024];  // NUL-terminated
};

static_assert(sizeof(PeltoMessage) == 1028 && offsetof(PeltoMessage, sValue) == 4);

}  // namespace android
