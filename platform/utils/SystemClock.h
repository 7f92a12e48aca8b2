#pragma once

#include <cstdint>

namespace android {

int64_t elapsedRealtime();  // milliseconds since boot, sleep included

}  // namespace android
