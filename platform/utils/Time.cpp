#include <utils/SystemClock.h>
#include <utils/Timers.h>

#include <climits>

#include "sim/clock.h"

nsecs_t systemTime(int clock) {
    switch (clock) {
        case SYSTEM_TIME_REALTIME:
            return sim::Clock::get().wallNanos();
        case SYSTEM_TIME_BOOTTIME:
            return sim::Clock::get().bootNanos();
        default:
            return sim::Clock::get().monotonicNanos();
    }
}

int toMillisecondTimeoutDelay(nsecs_t referenceTime, nsecs_t timeoutTime) {
    if (timeoutTime <= referenceTime) return 0;
    // Unsigned, since the two may lie further apart than an int64 reaches.
    const uint64_t delay =
        static_cast<uint64_t>(timeoutTime) - static_cast<uint64_t>(referenceTime);
    const uint64_t millis = delay / 1000000 + (delay % 1000000 != 0 ? 1 : 0);
    return millis > INT_MAX ? INT_MAX : static_cast<int>(millis);
}

namespace android {

int64_t uptimeMillis() {
    return sim::Clock::get().monotonicNanos() / 1000000;
}
int64_t elapsedRealtime() {
    return sim::Clock::get().bootNanos() / 1000000;
}
int64_t elapsedRealtimeNano() {
    return sim::Clock::get().bootNanos();
}

}  // namespace android
