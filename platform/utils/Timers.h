#pragma once

#include <cstdint>

using nsecs_t = int64_t;  // nanoseconds

enum {
    SYSTEM_TIME_MONOTONIC = 1,  // stands still while the phone sleeps
};

// The time of the monotonic clock; asking for any other clock ends the process.
nsecs_t systemTime(int clock = SYSTEM_TIME_MONOTONIC);

// Milliseconds from one time to a later one, rounded up, at most INT_MAX; 0 when the later
// one has passed.
int toMillisecondTimeoutDelay(nsecs_t referenceTime, nsecs_t timeoutTime);
