#pragma once

#include <cstdint>

enum { SYSTEM_TIME_MONOTONIC = 1 };

int64_t systemTime(int clock);
int toMillisecondTimeoutDelay(int64_t referenceTime, int64_t timeoutTime);
