#pragma once

#include <cstdint>

namespace android {

int64_t uptimeMillis();         // milliseconds, without sleep
int64_t elapsedRealtime();      // milliseconds since boot, sleep included
int64_t elapsedRealtimeNano();  // the same in nanoseconds

}  // namespace android
