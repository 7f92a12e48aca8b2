#include <utils/SystemClock.h>
#include <utils/Timers.h>

#include <climits>
#include <cstdlib>

#include "sim/base/clock.h"

nsecs_t systemTime(int clock) {
    if (clock != SYSTEM_TIME_MONOTONIC) abort();
    return sim::Clock::get().monotonicNanos();
}

int toMillisecondTimeoutDelay(nsecs_t referenceTime, nsecs_t timeoutTime) {
    if (timeoutTime <= referenceTime) return 0;
    // Unsigned: the difference may exceed an int64.
    const uint64_t delay =
        static_cast<uint64_t>(timeoutTime) - static_cast<uint64_t>(referenceTime);
    const uint64_t millis = delay / 1000000 + (delay % 1000000 != 0 ? 1 : 0);
    return millis > INT_MAX ? INT_MAX : static_cast<int>(millis);
}

namespace android {

int64_t elapsedRealtime() {
    return sim::Clock::get().bootNanos() / 1000000;
}

}  // namespace android
