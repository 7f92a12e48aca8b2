#pragma once

#include <cstdint>

using nsecs_t = int64_t;  // nanoseconds

enum {
    SYSTEM_TIME_REALTIME = 0,   // wall clock since 1970
    SYSTEM_TIME_MONOTONIC = 1,  // stands still while the phone sleeps
    SYSTEM_TIME_BOOTTIME = 4,   // since boot, sleep included
};

nsecs_t systemTime(int clock = SYSTEM_TIME_MONOTONIC);

// Milliseconds from one time to a later one, rounded up, at most INT32_MAX; 0 when it has passed.
int toMillisecondTimeoutDelay(nsecs_t referenceTime, nsecs_t timeoutTime);

constexpr nsecs_t nanoseconds_to_milliseconds(nsecs_t nanos) {
    return nanos / 1000000;
}
